#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/AdmissionGate.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AdmissionGateTest : public doubles::PlatformTest {
protected:
    AdmissionGate::Run keepPlace(int number) {
        return [this, number](AdmissionGate::Place place) {
            began_.push_back(queues().current() + std::to_string(number));
            places_.push_back(std::move(place));
        };
    }

    std::vector<std::string> began_;
    std::vector<AdmissionGate::Place> places_;
};

TEST_F(AdmissionGateTest, ARunWithAPlaceBeginsAtOnce) {
    AdmissionGate gate(2);
    gate.enter(keepPlace(1));
    gate.enter(keepPlace(2));
    EXPECT_THAT(began_, ElementsAre("1", "2"));
}

TEST_F(AdmissionGateTest, OtherRunsWaitInOrderAndBeginOnTheGlobalQueue) {
    AdmissionGate gate(1);
    for (const int number : {1, 2, 3}) {
        gate.enter(keepPlace(number));
    }
    queues().runPending();
    EXPECT_THAT(began_, ElementsAre("1"));
    for (int i = 0; i < 2; ++i) {
        places_.pop_back();
        queues().runPending();
    }
    EXPECT_THAT(began_, ElementsAre("1", "global2", "global3"));
}

TEST_F(AdmissionGateTest, APlaceIsFreeAfterItsLastCopy) {
    AdmissionGate gate(1);
    gate.enter(keepPlace(1));
    gate.enter(keepPlace(2));
    auto copy = places_.front();
    places_.clear();
    queues().runPending();
    EXPECT_THAT(began_, ElementsAre("1"));
    copy.reset();
    queues().runPending();
    EXPECT_THAT(began_, ElementsAre("1", "global2"));
}

TEST_F(AdmissionGateTest, AFreePlaceIsKeptForLater) {
    AdmissionGate gate(1);
    gate.enter([](const AdmissionGate::Place&) {});
    gate.enter(keepPlace(2));
    EXPECT_THAT(began_, ElementsAre("2"));
}

TEST_F(AdmissionGateTest, PlacesMayOutliveTheGate) {
    {
        AdmissionGate gate(1);
        gate.enter(keepPlace(1));
        gate.enter(keepPlace(2));
    }
    places_.clear();
    queues().runPending();
    EXPECT_THAT(began_, ElementsAre("1", "global2"));
}

}  // namespace
}  // namespace glintmark
