#pragma once

#include <chrono>

namespace glintmark::platform {

/// Limits how often a process that dies is started again: at once after the first death, then after
/// pauses that double from 1 s to 5 min. Not synchronised.
class RestartPause {
public:
    using Clock = std::chrono::steady_clock;

    bool mayStart(Clock::time_point now) const { return now >= notBefore_; }
    void died(Clock::time_point now);
    void worked();  ///< The next death counts as the first.

private:
    std::chrono::seconds next_{0};
    Clock::time_point notBefore_ = Clock::time_point::min();
};

}  // namespace glintmark::platform
