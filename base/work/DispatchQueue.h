#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace glintmark {

class DispatchWorkItem;

/// Runs work in order of submission (a serial queue, the main queue) or as threads come free (the
/// global queue). May be used from any thread, from its own work included.
class DispatchQueue {
public:
    using Work = std::function<void()>;

    /// Work that has not begun is dropped, delayed or not; running work is waited for, unless the
    /// destructor is called from that very work.
    virtual ~DispatchQueue() = default;

    virtual void async(Work work) = 0;

    /// Submits `work` once `delay` has passed, measured on a clock that setting the time does not
    /// move. Work of equal due time keeps its order of submission.
    virtual void asyncAfter(std::chrono::nanoseconds delay, Work work) = 0;

    /// The same for work that can be cancelled.
    void asyncAfter(std::chrono::nanoseconds delay, std::shared_ptr<DispatchWorkItem> item);
};

}  // namespace glintmark
