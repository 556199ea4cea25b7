#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/work/DispatchWorkItem.h"
#include "tests/doubles/VirtualQueues.h"

namespace glintmark::doubles {
namespace {

using platform::QualityOfService;
using testing::ElementsAre;
using namespace std::chrono_literals;

class VirtualQueuesTest : public testing::Test {
protected:
    auto note(std::string text) {
        return [this, text = std::move(text)] { notes_.push_back(text + "@" + queues_.current()); };
    }

    VirtualQueues queues_;
    std::vector<std::string> notes_;
};

TEST_F(VirtualQueuesTest, NothingRunsUntilTheTestLetsIt) {
    queues_.main().async(note("a"));
    EXPECT_TRUE(notes_.empty());
    queues_.runPending();
    EXPECT_THAT(notes_, ElementsAre("a@main"));
    EXPECT_EQ(queues_.current(), "");
}

TEST_F(VirtualQueuesTest, WorkRunsInDueOrderAndThenInOrderOfSubmission) {
    auto serial = queues_.makeSerial("serial");
    serial->asyncAfter(2s, note("late"));
    queues_.main().asyncAfter(1s, note("first"));
    queues_.global(QualityOfService::userInitiated).asyncAfter(1s, note("second"));
    queues_.advance(999ms);
    EXPECT_TRUE(notes_.empty());
    queues_.advance(1001ms);
    EXPECT_THAT(notes_, ElementsAre("first@main", "second@global", "late@serial"));
    EXPECT_EQ(queues_.now(), 2s);
}

TEST_F(VirtualQueuesTest, WorkSubmittedByWorkRunsAtItsOwnTime) {
    queues_.main().async([&] {
        queues_.main().async(note("now"));
        queues_.main().asyncAfter(1s, note("later"));
    });
    queues_.runPending();
    EXPECT_THAT(notes_, ElementsAre("now@main"));
    EXPECT_EQ(queues_.pendingWork(), 1U);
    queues_.runUntilIdle();
    EXPECT_THAT(notes_, ElementsAre("now@main", "later@main"));
    EXPECT_EQ(queues_.now(), 1s);
}

TEST_F(VirtualQueuesTest, DestroyingASerialQueueDropsItsWork) {
    auto owned = std::make_shared<int>(0);
    const std::weak_ptr<int> weak = owned;
    auto serial = queues_.makeSerial("serial");
    EXPECT_EQ(queues_.liveSerialQueues(), 1U);
    serial->async([this, owned = std::move(owned)] { notes_.emplace_back("dropped"); });
    queues_.main().async(note("kept"));
    serial.reset();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(queues_.liveSerialQueues(), 0U);
    queues_.runUntilIdle();
    EXPECT_THAT(notes_, ElementsAre("kept@main"));
}

TEST_F(VirtualQueuesTest, ASerialQueueCanEndInItsOwnWork) {
    auto serial = queues_.makeSerial("serial");
    serial->async([&] {
        serial.reset();
        notes_.push_back(queues_.current());
    });
    queues_.runPending();
    EXPECT_THAT(notes_, ElementsAre("serial"));
}

TEST_F(VirtualQueuesTest, ACancelledItemDoesNotRun) {
    auto item = std::make_shared<DispatchWorkItem>(note("item"));
    queues_.main().asyncAfter(1s, item);
    item->cancel();
    queues_.advance(1s);
    EXPECT_TRUE(notes_.empty());
}

TEST_F(VirtualQueuesTest, ATimerFiresAfterEachIntervalUntilItIsInvalidated) {
    auto timer = queues_.scheduleRepeating(5s, note("tick"));
    queues_.advance(4999ms);
    EXPECT_TRUE(notes_.empty());
    queues_.advance(5001ms);
    EXPECT_THAT(notes_, ElementsAre("tick@main", "tick@main"));
    EXPECT_EQ(queues_.activeTimers(), 1U);
    EXPECT_EQ(queues_.pendingWork(), 0U);
    timer->invalidate();
    timer->invalidate();
    queues_.advance(10s);
    EXPECT_EQ(notes_.size(), 2U);
    EXPECT_EQ(queues_.activeTimers(), 0U);
}

TEST_F(VirtualQueuesTest, ATimerFiresEvenIfNobodyHoldsIt) {
    auto timer = queues_.scheduleRepeating(5s, note("tick"));
    timer.reset();
    queues_.advance(5s);
    EXPECT_EQ(notes_.size(), 1U);
}

TEST_F(VirtualQueuesTest, ATimerCanBeInvalidatedByItsOwnBlock) {
    std::shared_ptr<platform::Timer> timer;
    timer = queues_.scheduleRepeating(5s, [&] {
        notes_.emplace_back("tick");
        timer->invalidate();
    });
    queues_.advance(20s);
    EXPECT_EQ(notes_.size(), 1U);
}

}  // namespace
}  // namespace glintmark::doubles
