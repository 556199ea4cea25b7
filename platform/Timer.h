#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace glintmark::platform {

/// A repeating timer on the main run loop. Main thread only.
class Timer {
public:
    /// Destroying a timer does not stop it: the run loop keeps it until it is invalidated.
    virtual ~Timer() = default;

    /// The block does not run any more and is released. Harmless when done already.
    virtual void invalidate() = 0;
};

/// Makes timers. Main thread only.
class Timers {
public:
    virtual ~Timers() = default;

    /// Runs `block` on the main thread every `interval`, first after one interval, until the timer
    /// is invalidated. Firings that fall due while the thread is busy collapse into one.
    virtual std::shared_ptr<Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                     std::function<void()> block) = 0;
};

}  // namespace glintmark::platform
