#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "base/work/DispatchQueue.h"

namespace glintmark::platform {

enum class ThreadPriority { normal, belowMainThread };

/// Runs work on its own threads, which it makes when needed and keeps until it is destroyed. With
/// at most one thread it is a serial queue. One free thread sleeps until the earliest due time of
/// all delayed work. Idle threads never wake up.
class ThreadPoolQueue : public DispatchQueue {
public:
    /// Each thread is named `label`; tools show its first 15 bytes.
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
