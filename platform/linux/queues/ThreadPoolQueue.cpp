#include "platform/linux/queues/ThreadPoolQueue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/linux/queues/DelayedWork.h"
#include "platform/linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t stackBytes = std::size_t{1024} * 1024;

}  // namespace

/// Outlives the queue when the queue is destroyed from its own work, until that work has returned.
struct ThreadPoolQueue::State : std::enable_shared_from_this<ThreadPoolQueue::State> {
    State(std::string name, std::size_t most, ThreadPriority ofThreads)
        : label(std::move(name)), maximumThreads(most), priority(ofThreads) {}

    void provideForReady();
    void provideForDelayed();
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
    std::size_t sleeping = 0;   // threads that wait for `workCame`
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
    const std::lock_guard lock(state_->mutex);
    state_->ready.push_back(std::move(work));
    state_->provideForReady();
}

void ThreadPoolQueue::asyncAfter(std::chrono::nanoseconds delay, Work work) {
    const auto due = DelayedWork::dueAfter(delay);
    const std::lock_guard lock(state_->mutex);
    const bool isEarliest = state_->delayed.empty() || due < state_->delayed.nextDue();
    state_->delayed.add(due, std::move(work));
    if (isEarliest) {
        state_->provideForDelayed();
    }
}

/// Sees to it that a thread takes the ready work: one that sleeps, else a new one. When all are
/// busy, the next to become free does.
void ThreadPoolQueue::State::provideForReady() {
    if (sleeping > 0) {
        workCame.notify_one();
    } else if (watchesClock) {
        earlierDueTimeCame.notify_one();
    } else {
        addThread();
    }
}

/// The same for a thread that waits for the earliest due time.
void ThreadPoolQueue::State::provideForDelayed() {
    if (watchesClock) {
        earlierDueTimeCame.notify_one();
    } else if (sleeping > 0) {
        workCame.notify_one();
    } else {
        addThread();
    }
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
        if (!ready.empty()) {
            provideForReady();
        } else if (!delayed.empty() && !watchesClock) {
            provideForDelayed();
        }
        lock.unlock();
        work();
        work = nullptr;  // what it owns goes outside the lock, too
        lock.lock();
    }
}

void ThreadPoolQueue::State::sleepUntilNeeded(std::unique_lock<std::mutex>& lock) {
    if (delayed.empty() || watchesClock) {
        ++sleeping;
        workCame.wait(lock);
        --sleeping;
    } else {
        watchesClock = true;
        earlierDueTimeCame.wait_until(lock, delayed.nextDue());
        watchesClock = false;
    }
}

}  // namespace glintmark::platform
