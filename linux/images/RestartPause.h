#pragma once

#include <chrono>

namespace glintmark::platform {

/// When a process that dies may be started again: at once after a first death, then after pauses
/// that double from 1 s to 5 min while deaths repeat. Not synchronised.
class RestartPause {
public:
    using Clock = std::chrono::steady_clock;

    bool mayStart(Clock::time_point now) const { return now >= notBefore_; }
    void died(Clock::time_point now);
    void worked();  ///< The next death is a first one again.

private:
    std::chrono::seconds next_{0};
    Clock::time_point notBefore_ = Clock::time_point::min();
};

}  // namespace glintmark::platform
