#include "linux/queues/ThreadPoolQueue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

#include "linux/queues/DelayedWork.h"
#include "linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t stackBytes = std::size_t{1024} * 1024;

/// Whom to notify, if anybody, once the lock is free: whoever wakes up needs it at once.
using Wake = std::condition_variable*;

void notify(Wake wake) {
    if (wake != nullptr) {
        wake->notify_one();
    }
}

}  // namespace

/// Outlives the queue when the queue is destroyed from its own work, until that work has returned.
struct ThreadPoolQueue::State : std::enable_shared_from_this<ThreadPoolQueue::State> {
    State(std::string name, std::size_t most, ThreadPriority ofThreads)
        : label(std::move(name)), maximumThreads(most), priority(ofThreads) {}

    Wake provideForReady();
    Wake provideForDelayed();
    Wake callSleeper();
    void addThread();
    void runThread();
    void sleepUntilNeeded(std::unique_lock<std::mutex>& lock);

    const std::string label;
    const std::size_t maximumThreads;
    const ThreadPriority priority;

    std::mutex mutex;  // guards all below
    std::condition_variable workCame;
    std::condition_variable earlierDueTimeCame;
    std::deque<Work> ready;
    DelayedWork delayed;
    std::vector<Thread> threads;
    std::size_t sleeping = 0;   // threads that wait for `workCame` and were not called
    std::size_t called = 0;     // threads that were and have not looked yet
    bool watchesClock = false;  // one thread waits for the earliest due time
    bool isThreadBeginning = false;
    bool ending = false;
};

ThreadPoolQueue::ThreadPoolQueue(std::string label, std::size_t maximumThreads,
                                 ThreadPriority priority)
    : state_(std::make_shared<State>(std::move(label), maximumThreads, priority)) {}

ThreadPoolQueue::~ThreadPoolQueue() {
    std::deque<Work> droppedReady;  // destroyed outside the lock: work may own much
    DelayedWork droppedDelayed;
    std::vector<Thread> threads;
    {
        const std::lock_guard lock(state_->mutex);
        state_->ending = true;
        droppedReady.swap(state_->ready);
        std::swap(droppedDelayed, state_->delayed);
        threads.swap(state_->threads);
    }
    state_->workCame.notify_all();
    state_->earlierDueTimeCame.notify_all();
    for (auto& thread : threads) {
        if (thread.isCurrent()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

void ThreadPoolQueue::async(Work work) {
    const auto state = state_;  // the work may destroy the queue
    Wake wake = nullptr;
    {
        const std::lock_guard lock(state->mutex);
        state->ready.push_back(std::move(work));
        wake = state->provideForReady();
    }
    notify(wake);
}

void ThreadPoolQueue::asyncAfter(std::chrono::nanoseconds delay, Work work) {
    const auto due = DelayedWork::dueAfter(delay);
    const auto state = state_;
    Wake wake = nullptr;
    {
        const std::lock_guard lock(state->mutex);
        const bool isEarliest = state->delayed.empty() || due < state->delayed.nextDue();
        state->delayed.add(due, std::move(work));
        if (isEarliest) {
            wake = state->provideForDelayed();
        }
    }
    notify(wake);
}

/// Sees to it that a thread takes the ready work: one that sleeps, else a new one. When all are
/// busy, the next to become free does. Whoever was called already takes one piece each.
Wake ThreadPoolQueue::State::provideForReady() {
    if (ready.size() <= called) {
        return nullptr;
    }
    if (sleeping > 0) {
        return callSleeper();
    }
    if (watchesClock) {
        return &earlierDueTimeCame;
    }
    addThread();
    return nullptr;
}

/// The same for a thread that waits for the earliest due time.
Wake ThreadPoolQueue::State::provideForDelayed() {
    if (watchesClock) {
        return &earlierDueTimeCame;
    }
    if (sleeping > 0) {
        return callSleeper();
    }
    addThread();
    return nullptr;
}

Wake ThreadPoolQueue::State::callSleeper() {
    --sleeping;
    ++called;
    return &workCame;
}

/// None while another is about to begin: that one looks at all there is. When the system has no
/// thread left, those that are there do the work, or it waits until more is submitted.
void ThreadPoolQueue::State::addThread() {
    if (!isThreadBeginning && threads.size() < maximumThreads && !ending) {
        auto thread =
            Thread::start(label, stackBytes, [self = shared_from_this()] { self->runThread(); });
        isThreadBeginning = thread.has_value();
        if (thread) {
            threads.push_back(*std::move(thread));
        }
    }
}

void ThreadPoolQueue::State::runThread() {
    if (priority == ThreadPriority::behindMainThread) {
        yieldToMainThread();
    }
    std::unique_lock lock(mutex);
    isThreadBeginning = false;
    while (!ending) {
        delayed.moveDue(DelayedWork::Clock::now(), ready);
        if (ready.empty()) {
            sleepUntilNeeded(lock);
            continue;
        }
        Work work = std::move(ready.front());
        ready.pop_front();
        Wake wake = nullptr;
        if (!ready.empty()) {
            wake = provideForReady();
        } else if (!delayed.empty() && !watchesClock) {
            wake = provideForDelayed();
        }
        lock.unlock();
        notify(wake);
        work();
        work = nullptr;  // what it owns goes outside the lock, too
        lock.lock();
    }
}

void ThreadPoolQueue::State::sleepUntilNeeded(std::unique_lock<std::mutex>& lock) {
    if (delayed.empty() || watchesClock) {
        ++sleeping;
        workCame.wait(lock, [this] { return called > 0 || ending; });
        called -= ending ? 0 : 1;
    } else {
        watchesClock = true;
        earlierDueTimeCame.wait_until(lock, delayed.nextDue());
        watchesClock = false;
    }
}

}  // namespace glintmark::platform
