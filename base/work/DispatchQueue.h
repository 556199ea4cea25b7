#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace glintmark {

class DispatchWorkItem;

/// Runs work in order of submission (a serial queue, the main queue) or as threads become free (the
/// global queue). May be used from any thread, from its own work included.
class DispatchQueue {
public:
    using Work = std::function<void()>;

    /// Drops work that has not begun, delayed or not. Waits for running work, unless that work
    /// itself calls the destructor.
    virtual ~DispatchQueue() = default;

    virtual void async(Work work) = 0;

    /// Submits `work` once `delay` has passed. Changes of the system time have no effect on it.
    /// Work of equal due time keeps its order of submission.
    virtual void asyncAfter(std::chrono::nanoseconds delay, Work work) = 0;

    /// The same for work that can be cancelled.
    void asyncAfter(std::chrono::nanoseconds delay, std::shared_ptr<DispatchWorkItem> item);
};

}  // namespace glintmark
