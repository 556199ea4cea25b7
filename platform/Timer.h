#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace glintmark::platform {

/// A repeating timer of the main loop. Main thread only.
class Timer {
public:
    /// Destroying a timer does not stop it: the main loop keeps it until it is invalidated.
    virtual ~Timer() = default;

    /// Stops the timer and releases the block. A second call does nothing.
    virtual void invalidate() = 0;
};

/// Makes timers. Main thread only.
class Timers {
public:
    virtual ~Timers() = default;

    /// Runs `block` on the main thread every `interval`, first after one interval, until the timer
    /// is invalidated. While the thread is busy, all firings that fall due become one.
    virtual std::shared_ptr<Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                     std::function<void()> block) = 0;
};

}  // namespace glintmark::platform
