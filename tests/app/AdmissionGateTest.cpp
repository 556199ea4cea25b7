#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "app/AdmissionGate.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

class AdmissionGateTest : public doubles::PlatformTest {
protected:
    void TearDown() override {
        places_.clear();
        queues().runUntilIdle();  // the gate looks once more for runs that never end
        PlatformTest::TearDown();
    }

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
    AdmissionGate gate({2});
    gate.enter(keepPlace(1));
    gate.enter(keepPlace(2));
    EXPECT_THAT(began_, ElementsAre("1", "2"));
}

TEST_F(AdmissionGateTest, OtherRunsWaitInOrderAndBeginOnTheGlobalQueue) {
    AdmissionGate gate({1});
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
    AdmissionGate gate({1});
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
    AdmissionGate gate({1});
    gate.enter([](const AdmissionGate::Place&) {});
    gate.enter(keepPlace(2));
    EXPECT_THAT(began_, ElementsAre("2"));
}

TEST_F(AdmissionGateTest, PlacesMayOutliveTheGate) {
    {
        AdmissionGate gate({1});
        gate.enter(keepPlace(1));
        gate.enter(keepPlace(2));
    }
    places_.clear();
    queues().runPending();
    EXPECT_THAT(began_, ElementsAre("1", "global2"));
}

TEST_F(AdmissionGateTest, TheFirstThatWaitsBorrowsAPlaceWhenNoneBecomesFree) {
    AdmissionGate gate({2, 2});
    for (const int number : {1, 2, 3, 4, 5}) {
        gate.enter(keepPlace(number));
    }
    EXPECT_THAT(began_, ElementsAre("1", "2"));
    queues().advance(AdmissionGate::maximumWait / 2);
    EXPECT_THAT(began_, ElementsAre("1", "2", "global3"));
    queues().advance(10 * AdmissionGate::maximumWait);
    EXPECT_THAT(began_, ElementsAre("1", "2", "global3", "global4")) << "no more than are lent";
    places_.erase(places_.begin());
    places_.erase(places_.begin());
    queues().runPending();
    EXPECT_THAT(began_, testing::SizeIs(4)) << "two active runs are as many as there are places";
    places_.pop_back();
    queues().runPending();
    EXPECT_THAT(began_, ElementsAre("1", "2", "global3", "global4", "global5"));
}

TEST_F(AdmissionGateTest, ALoneRunBeginsWithinASecondBehindRunsThatHoldAllPlaces) {
    AdmissionGate gate({128, 32});
    for (int number = 1; number <= 128; ++number) {
        gate.enter(keepPlace(number));
    }
    for (const auto arrival : {3000ms, 3300ms, 5000ms}) {
        queues().advance(arrival - queues().now());
        const auto before = began_.size();
        gate.enter(keepPlace(0));
        EXPECT_EQ(began_.size(), before);
        queues().advance(AdmissionGate::maximumWait);
        EXPECT_EQ(began_.size(), before + 1) << arrival.count();
    }
    EXPECT_LE(AdmissionGate::maximumWait, 1s);
}

TEST_F(AdmissionGateTest, NothingIsLentWhileRunsBeginInTheirTurn) {
    AdmissionGate gate({2, 2});
    for (int number = 1; number <= 20; ++number) {
        gate.enter(keepPlace(number));
    }
    for (int ended = 0; ended < 10; ++ended) {
        queues().advance(300ms);
        places_.erase(places_.begin());
        queues().runPending();
        EXPECT_THAT(places_, testing::SizeIs(2));
    }
    places_.clear();
    queues().runPending();
}

TEST_F(AdmissionGateTest, ARunThatNeverEndsLosesItsPlace) {
    AdmissionGate gate({1});
    std::vector<std::string> expired;
    gate.enter(keepPlace(1), 1, [&] { expired.push_back(queues().current() + "1"); });
    gate.enter(keepPlace(2), 1, [&] { expired.push_back(queues().current() + "2"); });
    queues().advance(AdmissionGate::minimumHold - 1ns);
    EXPECT_THAT(expired, IsEmpty());
    queues().advance(AdmissionGate::minimumHold + 1ns);
    EXPECT_THAT(expired, ElementsAre("global1"));
    EXPECT_THAT(began_, ElementsAre("1", "global2"));
    places_.erase(places_.begin());
    gate.enter(keepPlace(3));
    queues().runPending();
    EXPECT_THAT(began_, testing::SizeIs(2)) << "a place that was lost is not given back again";
    places_.clear();
    queues().runUntilIdle();
    EXPECT_THAT(expired, ElementsAre("global1"));
}

TEST_F(AdmissionGateTest, RunsCountForTheirSize) {
    AdmissionGate gate({10});
    gate.enter(keepPlace(1), 6);
    gate.enter(keepPlace(2), 4);
    gate.enter(keepPlace(3), 1);
    gate.enter(keepPlace(4), 0);
    EXPECT_THAT(began_, ElementsAre("1", "2", "4")) << "a run of size 0 never waits";
    gate.enter(keepPlace(5), 100);
    gate.enter(keepPlace(6), 1);
    places_[0].reset();
    queues().runPending();
    EXPECT_THAT(began_, ElementsAre("1", "2", "4", "global3"));
    places_[1].reset();
    queues().runPending();
    EXPECT_THAT(began_, testing::SizeIs(4)) << "a large run begins alone";
    places_[3].reset();
    queues().runPending();
    EXPECT_THAT(began_, ElementsAre("1", "2", "4", "global3", "global5"));
    places_.clear();
    queues().runPending();
    EXPECT_EQ(began_.back(), "global6");
}

}  // namespace
}  // namespace glintmark
