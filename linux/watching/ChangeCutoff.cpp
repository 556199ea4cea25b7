#include "linux/watching/ChangeCutoff.h"

#include <cstdint>
#include <ctime>
#include <tuple>

namespace glintmark::platform {

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr std::chrono::milliseconds maximumTick{10};  // of the coarse clock, at 100 Hz
constexpr seconds maximumGranularity{2};              // of time stamps, on FAT

nanoseconds read(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

/// True if `stamp` is not earlier than `first`. A stamp of whole seconds counts as a rounded one.
bool isSince(const statx_timestamp& stamp, nanoseconds first) {
    const std::int64_t firstSecond = std::chrono::floor<seconds>(first).count();
    const std::int64_t stampSecond = stamp.tv_sec;
    if (stamp.tv_nsec == 0) {
        return stampSecond + maximumGranularity.count() >= firstSecond;
    }
    // In two parts: a stamp after the year 2262 does not fit into 64 bits of nanoseconds.
    const std::int64_t firstFraction = (first - seconds(firstSecond)).count();
    return std::tuple(stampSecond, std::int64_t{stamp.tv_nsec}) >=
           std::tuple(firstSecond, firstFraction);
}

}  // namespace

ChangeCutoff::Moment ChangeCutoff::stampNow() {
    // This order and that of `exactNow()` make the steady time between the two moments too short
    // rather than too long, so a delay in between never looks like a clock that was set back.
    const auto wall = read(CLOCK_REALTIME_COARSE);
    return {wall, Clock::now()};
}

ChangeCutoff::Moment ChangeCutoff::exactNow() {
    const auto steady = Clock::now();
    return {read(CLOCK_REALTIME), steady};
}

/// A new name in a directory renews its modification time and its change time. The move of a
/// directory renews its change time alone.
StampedChange ChangeCutoff::changeIn(const struct statx& status, const Moment& now) const {
    const auto first = earliestStamp(now);
    if (!isSince(status.stx_ctime, first)) {
        return StampedChange::none;
    }
    const bool isNew = (status.stx_mask & STATX_BTIME) != 0 && isSince(status.stx_btime, first);
    const bool isMoved = !isSince(status.stx_mtime, first);
    return isNew || isMoved ? StampedChange::arrival : StampedChange::contents;
}

/// The earliest time stamp of a change since the cutoff. If the clock was set back since then, new
/// stamps may be earlier than the cutoff's by as much.
nanoseconds ChangeCutoff::earliestStamp(const Moment& now) const {
    const nanoseconds setBack = cutoff_.wall + (now.steady - cutoff_.steady) - now.wall;
    return setBack <= maximumTick ? cutoff_.wall : cutoff_.wall - setBack - maximumTick;
}

}  // namespace glintmark::platform
