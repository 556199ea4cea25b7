#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "base/work/DispatchQueue.h"

namespace glintmark::platform {

class ThreadPool;

enum class ThreadPriority { normal, belowMainThread };

/// Runs work on its own threads, which it makes when needed and keeps until it is destroyed. With
/// at most one thread it is a serial queue. One free thread sleeps until the earliest due time of
/// all delayed work. Idle threads never wake up.
///
/// Threads that are lost in a `BlockingSection` are replaced, up to a fixed number of them.
/// Destruction does not wait for work that is inside a section, so that work must own what it uses.
class ThreadPoolQueue : public DispatchQueue {
public:
    struct Options {
        ThreadPriority priority = ThreadPriority::normal;
        std::size_t maximumLostThreads = 16;   ///< At once.
        std::function<void()> onLoss = [] {};  ///< Whenever a thread counts as lost. Any thread.
    };

    /// Each thread is named `label`; tools show its first 15 bytes.
    ThreadPoolQueue(std::string label, std::size_t maximumThreads);
    ThreadPoolQueue(std::string label, std::size_t maximumThreads, Options options);
    ~ThreadPoolQueue() override;

    ThreadPoolQueue(const ThreadPoolQueue&) = delete;
    ThreadPoolQueue& operator=(const ThreadPoolQueue&) = delete;

    void async(Work work) override;
    void asyncAfter(std::chrono::nanoseconds delay, Work work) override;
    using DispatchQueue::asyncAfter;

private:
    std::shared_ptr<ThreadPool> pool_;
};

}  // namespace glintmark::platform
