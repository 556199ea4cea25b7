#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <utility>

#include "base/work/DispatchQueue.h"
#include "tests/support/Event.h"

namespace glintmark::test {

/// Runs each piece of work at once, on the thread that submits it.
class InlineQueue final : public DispatchQueue {
public:
    using DispatchQueue::asyncAfter;
    void async(Work work) override { work(); }
    void asyncAfter(std::chrono::nanoseconds /*delay*/, Work work) override { work(); }
};

/// Keeps work until the test lets it run.
class HeldQueue final : public DispatchQueue {
public:
    using DispatchQueue::asyncAfter;
    void async(Work work) override {
        const std::lock_guard lock(mutex_);
        works_.push_back(std::move(work));
        changed_.notify_all();
    }
    void asyncAfter(std::chrono::nanoseconds /*delay*/, Work work) override {
        async(std::move(work));
    }

    /// Waits until `count` pieces of work are held. False if they do not arrive.
    bool waitFor(std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, patience, [&] { return works_.size() >= count; });
    }

    void runNext() {
        std::unique_lock lock(mutex_);
        const Work work = std::move(works_.front());
        works_.pop_front();
        lock.unlock();
        work();
    }

    std::size_t size() {
        const std::lock_guard lock(mutex_);
        return works_.size();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Work> works_;
};

}  // namespace glintmark::test
