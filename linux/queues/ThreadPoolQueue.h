#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "base/work/DispatchQueue.h"

namespace glintmark::platform {

enum class ThreadPriority { normal, behindMainThread };

/// Runs work on threads of its own, made when first needed and kept until the queue goes away.
/// With one thread at most it is a serial queue. Delayed work costs no thread: whichever thread
/// is free sleeps until the earliest due time. A queue without work never wakes up.
class ThreadPoolQueue : public DispatchQueue {
public:
    /// Each thread shows `label`, as far as the system shows names.
    ThreadPoolQueue(std::string label, std::size_t maximumThreads,
                    ThreadPriority priority = ThreadPriority::normal);
    ~ThreadPoolQueue() override;

    ThreadPoolQueue(const ThreadPoolQueue&) = delete;
    ThreadPoolQueue& operator=(const ThreadPoolQueue&) = delete;

    void async(Work work) override;
    void asyncAfter(std::chrono::nanoseconds delay, Work work) override;
    using DispatchQueue::asyncAfter;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace glintmark::platform
