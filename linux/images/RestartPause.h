#pragma once

#include <chrono>

namespace glintmark::platform {

/// Limits how often a process that dies is started again: at once after the first death, then after
/// pauses that double from 1 s to 5 min. Deaths are forgotten when there was none for 10 minutes.
/// Not synchronised.
class RestartPause {
public:
    using Clock = std::chrono::steady_clock;

    /// The earliest time of the next start.
    Clock::time_point end() const { return notBefore_; }
    void died(Clock::time_point now);

private:
    std::chrono::seconds next_{0};
    Clock::time_point lastDeath_ = Clock::time_point::min();
    Clock::time_point notBefore_ = Clock::time_point::min();
};

}  // namespace glintmark::platform
