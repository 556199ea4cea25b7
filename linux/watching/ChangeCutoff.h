#pragma once

#include <sys/stat.h>

#include <chrono>

namespace glintmark::platform {

/// The change since the cutoff that a directory's time stamps show.
enum class StampedChange {
    none,
    contents,  ///< Something changed in the directory.
    arrival,   ///< The directory itself was made, or moved to its place.
};

/// Tells from a directory's time stamps whether it changed since a moment, the cutoff. In doubt the
/// answer is yes.
class ChangeCutoff {
public:
    using Clock = std::chrono::steady_clock;

    /// One moment by two clocks.
    struct Moment {
        std::chrono::nanoseconds wall;  ///< Since the epoch; the clock may be set back.
        Clock::time_point steady;       ///< By a clock that is never set.
    };

    /// Now, by the coarse clock from which the file systems take their time stamps. A change that
    /// follows never has an earlier stamp.
    static Moment stampNow();

    /// Now, by the exact clock.
    static Moment exactNow();

    explicit ChangeCutoff(const Moment& cutoff) : cutoff_(cutoff), quiet_(cutoff) {}

    /// Notes that every event up to `moment` has been handled. `moment` is from `stampNow()`.
    void noteQuiet(const Moment& moment) { quiet_ = moment; }

    /// Moves the cutoff to the last quiet moment: events may have been lost from then on.
    void moveToQuiet() { cutoff_ = quiet_; }

    /// `now` is from `exactNow()`.
    StampedChange changeIn(const struct statx& status, const Moment& now) const;

private:
    std::chrono::nanoseconds earliestStamp(const Moment& now) const;

    Moment cutoff_;
    Moment quiet_;
};

}  // namespace glintmark::platform
