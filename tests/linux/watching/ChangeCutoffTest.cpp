#include <gtest/gtest.h>

#include "linux/watching/ChangeCutoff.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using Moment = ChangeCutoff::Moment;

constexpr nanoseconds cutoff = 1'000'000s + 500ms;
constexpr nanoseconds before = cutoff - 1ns;
constexpr nanoseconds longBefore = cutoff - 24h;

statx_timestamp stamp(nanoseconds time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    statx_timestamp stamp{};
    stamp.tv_sec = seconds.count();
    stamp.tv_nsec = static_cast<unsigned>((time - seconds).count());
    return stamp;
}

/// The status of a directory made long before the cutoff.
struct statx status(nanoseconds changed, nanoseconds modified, nanoseconds born = longBefore) {
    struct statx status {};
    status.stx_mask = STATX_CTIME | STATX_MTIME | STATX_BTIME;
    status.stx_ctime = stamp(changed);
    status.stx_mtime = stamp(modified);
    status.stx_btime = stamp(born);
    return status;
}

/// The moment at which both clocks have advanced by `time` since the cutoff.
Moment after(nanoseconds time) { return {cutoff + time, ChangeCutoff::Clock::time_point(time)}; }

class ChangeCutoffTest : public testing::Test {
protected:
    StampedChange change(const struct statx& status, const Moment& now = after(1min)) {
        return cutoff_.changeIn(status, now);
    }
    StampedChange changeAt(nanoseconds stamp, const Moment& now = after(1min)) {
        return change(status(stamp, stamp), now);
    }

    ChangeCutoff cutoff_{after(0ns)};
};

TEST_F(ChangeCutoffTest, AChangeCountsFromTheCutoffOn) {
    EXPECT_EQ(changeAt(longBefore), StampedChange::none);
    EXPECT_EQ(changeAt(before), StampedChange::none);
    EXPECT_EQ(changeAt(cutoff), StampedChange::contents);
    EXPECT_EQ(changeAt(cutoff + 1ns), StampedChange::contents);
    EXPECT_EQ(changeAt(cutoff + 24h), StampedChange::contents);
}

TEST_F(ChangeCutoffTest, ADirectoryBornSinceTheCutoffHasArrived) {
    EXPECT_EQ(change(status(cutoff + 1s, cutoff + 1s, cutoff)), StampedChange::arrival);
    EXPECT_EQ(change(status(cutoff + 1s, cutoff + 1s, before)), StampedChange::contents);
}

TEST_F(ChangeCutoffTest, WithoutATimeOfBirthADirectoryCountsAsAnOldOne) {
    auto unborn = status(cutoff + 1s, cutoff + 1s, cutoff);
    unborn.stx_mask &= ~unsigned{STATX_BTIME};
    EXPECT_EQ(change(unborn), StampedChange::contents);
}

TEST_F(ChangeCutoffTest, ADirectoryChangedButNotModifiedHasArrived) {
    EXPECT_EQ(change(status(cutoff, before)), StampedChange::arrival);
    EXPECT_EQ(change(status(before, before)), StampedChange::none);
}

TEST_F(ChangeCutoffTest, AModificationTimeThatAProgramSetIsNoChange) {
    EXPECT_EQ(change(status(before, cutoff + 24h)), StampedChange::none);
}

TEST_F(ChangeCutoffTest, AStampOfWholeSecondsMayBeRoundedByTwo) {
    const auto second = std::chrono::floor<std::chrono::seconds>(cutoff);
    EXPECT_EQ(changeAt(second), StampedChange::contents);
    EXPECT_EQ(changeAt(second - 2s), StampedChange::contents);
    EXPECT_EQ(changeAt(second - 3s), StampedChange::none);
    EXPECT_EQ(changeAt(second - 2s + 1ns), StampedChange::none);
}

TEST_F(ChangeCutoffTest, StampsOfTheFarFutureAreLater) {
    auto later = status(cutoff, cutoff);
    later.stx_mtime.tv_sec = std::int64_t{1} << 34U;  // the year 2514
    later.stx_mtime.tv_nsec = 1;
    EXPECT_EQ(change(later), StampedChange::contents);
}

TEST_F(ChangeCutoffTest, AClockSetBackMakesEarlierStampsCount) {
    const Moment setBack{cutoff + 1min - 1h, after(1min).steady};
    EXPECT_EQ(changeAt(before, setBack), StampedChange::contents);
    EXPECT_EQ(changeAt(cutoff - 1h, setBack), StampedChange::contents);
    EXPECT_EQ(changeAt(cutoff - 1h - 10ms, setBack), StampedChange::contents);
    EXPECT_EQ(changeAt(cutoff - 1h - 11ms, setBack), StampedChange::none);
}

TEST_F(ChangeCutoffTest, AClockBehindByOneTickWasNotSetBack) {
    EXPECT_EQ(changeAt(before, {cutoff + 1min - 10ms, after(1min).steady}), StampedChange::none);
    EXPECT_EQ(changeAt(before, {cutoff + 1min - 11ms, after(1min).steady}),
              StampedChange::contents);
}

TEST_F(ChangeCutoffTest, AClockSetForwardChangesNothing) {
    const Moment setForward{cutoff + 24h, after(1min).steady};
    EXPECT_EQ(changeAt(before, setForward), StampedChange::none);
    EXPECT_EQ(changeAt(cutoff, setForward), StampedChange::contents);
}

TEST_F(ChangeCutoffTest, TheCutoffMovesToTheLastQuietMoment) {
    cutoff_.noteQuiet(after(10s));
    EXPECT_EQ(changeAt(cutoff), StampedChange::contents);
    cutoff_.moveToQuiet();
    EXPECT_EQ(changeAt(cutoff + 10s - 1ns), StampedChange::none);
    EXPECT_EQ(changeAt(cutoff + 10s), StampedChange::contents);
}

TEST_F(ChangeCutoffTest, WithoutAQuietMomentTheCutoffStays) {
    cutoff_.moveToQuiet();
    EXPECT_EQ(changeAt(before), StampedChange::none);
    EXPECT_EQ(changeAt(cutoff), StampedChange::contents);
}

TEST_F(ChangeCutoffTest, TheSystemsTwoClocksAgreeThatNothingWasSetBack) {
    const auto now = ChangeCutoff::stampNow();
    const ChangeCutoff fresh(now);
    const auto justBefore = now.wall - 1ns;
    EXPECT_EQ(fresh.changeIn(status(justBefore, justBefore), ChangeCutoff::exactNow()),
              justBefore % 1s == 0ns ? StampedChange::contents : StampedChange::none);
}

}  // namespace
}  // namespace glintmark::platform
