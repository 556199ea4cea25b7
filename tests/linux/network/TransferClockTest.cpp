#include <gtest/gtest.h>

#include "linux/network/TransferClock.h"

namespace glintmark::platform {

namespace {

using namespace std::chrono_literals;

constexpr TransferClock::Time noon{std::chrono::hours(12)};

TEST(TransferClockTest, ATransferWithoutDataTimesOut) {
    TransferClock clock(10s, 60s);
    clock.start(noon);
    EXPECT_EQ(clock.deadline(), noon + 10s);
}

TEST(TransferClockTest, DataMovesTheDeadline) {
    TransferClock clock(10s, 60s);
    clock.start(noon);
    clock.dataArrived(noon + 9s);
    EXPECT_EQ(clock.deadline(), noon + 19s);
}

TEST(TransferClockTest, DataDoesNotMoveTheDeadlineBeyondTheTransferTimeout) {
    TransferClock clock(10s, 60s);
    clock.start(noon);
    clock.dataArrived(noon + 55s);
    EXPECT_EQ(clock.deadline(), noon + 60s);
}

TEST(TransferClockTest, TimeBetweenStopAndStartDoesNotCount) {
    TransferClock clock(10s, 60s);
    clock.start(noon);
    clock.dataArrived(noon + 55s);
    clock.stop(noon + 55s);
    clock.start(noon + 1000s);
    EXPECT_EQ(clock.deadline(), noon + 1005s);
}

TEST(TransferClockTest, AnEndlessDataTimeoutLeavesTheTransferTimeout) {
    TransferClock clock(std::chrono::nanoseconds::max(), 60s);
    clock.start(noon);
    EXPECT_EQ(clock.deadline(), noon + 60s);
}

}  // namespace

}  // namespace glintmark::platform
