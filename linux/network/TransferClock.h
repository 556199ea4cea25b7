#pragma once

#include <algorithm>
#include <chrono>

namespace glintmark::platform {

/// The deadline of a transfer, from a timeout between two arrivals of data and one for the whole
/// transfer. The time between `stop` and `start`, in which the transfer is queued, does not count.
class TransferClock {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::nanoseconds;

    /// `dataTimeout` limits the time without data, `transferTimeout` all running time together.
    TransferClock(Duration dataTimeout, Duration transferTimeout)
        : dataTimeout_(std::min(dataTimeout, transferTimeout)), left_(transferTimeout) {}

    /// The deadline if the clock starts at `begin` and no data arrives.
    Time deadlineFrom(Time begin) const { return begin + std::min(dataTimeout_, left_); }

    void start(Time now) {
        startedAt_ = now;
        lastDataAt_ = now;
    }
    void dataArrived(Time now) { lastDataAt_ = now; }
    void stop(Time now) { left_ -= now - startedAt_; }

    /// Call only between `start` and `stop`.
    Time deadline() const { return std::min(lastDataAt_ + dataTimeout_, startedAt_ + left_); }

private:
    Duration dataTimeout_;
    Duration left_;
    Time startedAt_;
    Time lastDataAt_;
};

}  // namespace glintmark::platform
