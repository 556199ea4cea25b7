#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/glib/GLibHandles.h"
#include "linux/queues/GLibTimers.h"
#include "tests/linux/Waiting.h"
#include "tests/linux/queues/GLibContextFixture.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class GLibTimersTest : public GLibContextFixture {
protected:
    GLibTimers timers_{context_.get()};
};

TEST_F(GLibTimersTest, FiresRepeatedlyAtWholeMultiplesOfTheInterval) {
    const auto interval = 5ms;
    const auto begin = Clock::now();
    int fired = 0;
    const auto timer = timers_.scheduleRepeating(interval, [&] {
        ++fired;
        EXPECT_GE(Clock::now() - begin, fired * interval);
    });
    iterateUntil([&] { return fired == 5; });
    timer->invalidate();
}

TEST_F(GLibTimersTest, FiringsMissedWhileTheThreadWasBusyCollapseIntoOne) {
    const auto interval = 10ms;
    const auto begin = Clock::now();
    int fired = 0;
    const auto timer = timers_.scheduleRepeating(interval, [&] { ++fired; });
    EXPECT_TRUE(waitFor([&] { return Clock::now() - begin > 5 * interval; }));
    g_main_context_iteration(context_.get(), FALSE);
    EXPECT_EQ(fired, 1);
    const auto due = (Clock::now() - begin) / interval;  // the schedule has not shifted
    iterateUntil([&] { return fired == 2; });
    EXPECT_GE((Clock::now() - begin) / interval, due);
    timer->invalidate();
}

TEST_F(GLibTimersTest, AnInvalidatedTimerNeverFiresAndReleasesItsBlock) {
    auto owned = std::make_shared<int>(0);
    const auto timer = timers_.scheduleRepeating(1ms, [owned] { ADD_FAILURE() << "fired"; });
    timer->invalidate();
    EXPECT_EQ(owned.use_count(), 1);
    timer->invalidate();
    int later = 0;
    const auto other = timers_.scheduleRepeating(2ms, [&] { ++later; });
    iterateUntil([&] { return later == 2; });
    other->invalidate();
}

TEST_F(GLibTimersTest, MayBeInvalidatedByItsOwnBlock) {
    int fired = 0;
    std::shared_ptr<Timer> timer;
    timer = timers_.scheduleRepeating(1ms, [&] {
        timer->invalidate();
        timer.reset();
        ++fired;
    });
    iterateUntil([&] { return fired == 1; });
    EXPECT_FALSE(g_main_context_iteration(context_.get(), FALSE));
}

TEST_F(GLibTimersTest, ATimerThatNobodyHoldsKeepsFiring) {
    int fired = 0;
    std::weak_ptr<Timer> timer = timers_.scheduleRepeating(1ms, [&] { ++fired; });
    iterateUntil([&] { return fired == 2; });
    ASSERT_FALSE(timer.expired());
    timer.lock()->invalidate();
    EXPECT_TRUE(timer.expired());
}

}  // namespace
}  // namespace glintmark::platform
