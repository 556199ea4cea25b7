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

/// The condition variable to notify, or null. Notify it after unlocking, because the woken thread
/// needs the lock at once.
using Wake = std::condition_variable*;

void notify(Wake wake) {
    if (wake != nullptr) {
        wake->notify_one();
    }
}

}  // namespace

/// If the queue's own work destroys the queue, the state lives until that work has returned.
struct ThreadPoolQueue::State : std::enable_shared_from_this<ThreadPoolQueue::State> {
    State(std::string name, std::size_t threadLimit, ThreadPriority ofThreads)
        : label(std::move(name)), maximumThreads(threadLimit), priority(ofThreads) {}

    Wake findThreadForReady();
    Wake findThreadForDelayed();
    Wake wakeSleeper();
    void addThread();
    void runThread();
    void sleepUntilNeeded(std::unique_lock<std::mutex>& lock);

    const std::string label;
    const std::size_t maximumThreads;
    const ThreadPriority priority;

    std::mutex mutex;  // guards all below
    std::condition_variable workAdded;
    std::condition_variable earlierDueTimeAdded;
    std::deque<Work> ready;
    DelayedWork delayed;
    std::vector<Thread> threads;
    std::size_t sleeping = 0;   // threads that wait for `workAdded`, without the waking ones
    std::size_t waking = 0;     // threads that were chosen to wake up but still sleep
    bool watchesClock = false;  // one thread waits for the earliest due time
    bool isThreadStarting = false;
    bool ending = false;
};

ThreadPoolQueue::ThreadPoolQueue(std::string label, std::size_t maximumThreads,
                                 ThreadPriority priority)
    : state_(std::make_shared<State>(std::move(label), maximumThreads, priority)) {}

ThreadPoolQueue::~ThreadPoolQueue() {
    std::deque<Work> droppedReady;  // destroyed after unlocking, because that may be slow
    DelayedWork droppedDelayed;
    std::vector<Thread> threads;
    {
        const std::lock_guard lock(state_->mutex);
        state_->ending = true;
        droppedReady.swap(state_->ready);
        std::swap(droppedDelayed, state_->delayed);
        threads.swap(state_->threads);
    }
    state_->workAdded.notify_all();
    state_->earlierDueTimeAdded.notify_all();
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
        wake = state->findThreadForReady();
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
            wake = state->findThreadForDelayed();
        }
    }
    notify(wake);
}

/// Makes sure that a thread takes the ready work: a sleeping one, or else a new one. If all threads
/// are busy, the next free one takes it. Each waking thread takes one piece of work.
Wake ThreadPoolQueue::State::findThreadForReady() {
    if (ready.size() <= waking) {
        return nullptr;
    }
    if (sleeping > 0) {
        return wakeSleeper();
    }
    if (watchesClock) {
        return &earlierDueTimeAdded;
    }
    addThread();
    return nullptr;
}

/// Makes sure that a thread waits for the earliest due time.
Wake ThreadPoolQueue::State::findThreadForDelayed() {
    if (watchesClock) {
        return &earlierDueTimeAdded;
    }
    if (sleeping > 0) {
        return wakeSleeper();
    }
    addThread();
    return nullptr;
}

Wake ThreadPoolQueue::State::wakeSleeper() {
    --sleeping;
    ++waking;
    return &workAdded;
}

/// Adds no thread while another starts, because the starting one looks at all work. If the system
/// has no thread left, the existing threads do the work; without any, the work waits for the next
/// call.
void ThreadPoolQueue::State::addThread() {
    if (!isThreadStarting && threads.size() < maximumThreads && !ending) {
        auto thread =
            Thread::start(label, stackBytes, [self = shared_from_this()] { self->runThread(); });
        isThreadStarting = thread.has_value();
        if (thread) {
            threads.push_back(*std::move(thread));
        }
    }
}

void ThreadPoolQueue::State::runThread() {
    if (priority == ThreadPriority::belowMainThread) {
        lowerPriorityBelowMainThread();
    }
    std::unique_lock lock(mutex);
    isThreadStarting = false;
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
            wake = findThreadForReady();
        } else if (!delayed.empty() && !watchesClock) {
            wake = findThreadForDelayed();
        }
        lock.unlock();
        notify(wake);
        work();
        work = nullptr;  // destroys what it owns, also without the lock
        lock.lock();
    }
}

void ThreadPoolQueue::State::sleepUntilNeeded(std::unique_lock<std::mutex>& lock) {
    if (delayed.empty() || watchesClock) {
        ++sleeping;
        workAdded.wait(lock, [this] { return waking > 0 || ending; });
        waking -= ending ? 0 : 1;
    } else {
        watchesClock = true;
        earlierDueTimeAdded.wait_until(lock, delayed.nextDue());
        watchesClock = false;
    }
}

}  // namespace glintmark::platform
