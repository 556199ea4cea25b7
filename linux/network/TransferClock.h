#pragma once

#include <algorithm>
#include <chrono>

namespace glintmark::platform {

/// Tells when a transfer has been silent or has lasted too long. Time between `stop` and `start`,
/// in which the transfer waits its turn, counts for neither.
class TransferClock {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::nanoseconds;

    /// `silence`: the longest wait without data; `whole`: all running time together.
    TransferClock(Duration silence, Duration whole)
        : silence_(std::min(silence, whole)), left_(whole) {}

    void start(Time now) {
        startedAt_ = now;
        lastDataAt_ = now;
    }
    void dataArrived(Time now) { lastDataAt_ = now; }
    void stop(Time now) { left_ -= now - startedAt_; }

    /// For a running transfer.
    Time deadline() const { return std::min(lastDataAt_ + silence_, startedAt_ + left_); }

private:
    Duration silence_;
    Duration left_;
    Time startedAt_;
    Time lastDataAt_;
};

}  // namespace glintmark::platform
