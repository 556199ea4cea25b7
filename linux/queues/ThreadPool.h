#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "linux/queues/BlockingSection.h"
#include "linux/queues/DelayedWork.h"
#include "linux/queues/Thread.h"
#include "linux/queues/ThreadPoolQueue.h"

namespace glintmark::platform {

/// The threads and the work of a `ThreadPoolQueue`. Lives until the last of its threads has ended,
/// also if the queue's own work destroys the queue or a thread is lost.
class ThreadPool : public std::enable_shared_from_this<ThreadPool> {
public:
    using Clock = DelayedWork::Clock;
    using Work = DispatchQueue::Work;

    ThreadPool(std::string label, std::size_t maximumThreads, ThreadPoolQueue::Options options);

    /// The pool whose work the calling thread runs; null on other threads.
    static ThreadPool* current();

    void add(Work work);
    void addAt(Clock::time_point due, Work work);

    /// Drops the work that has not begun. Waits for running work, but not for the calling thread's
    /// and not for work inside a section.
    void end();

    void beginSection(BlockingSection& section);
    void endSection(BlockingSection& section);

private:
    /// The condition variable to notify, or null. Notify it after unlocking, because the woken
    /// thread needs the lock at once.
    using Wake = std::condition_variable*;

    static void notify(Wake wake);

    bool hasPlace() const;
    Wake findThreadForReady();
    Wake findThreadForAlarm();
    Wake wakeSleeper();
    void addThread();
    void runThread();
    void runWork(std::unique_lock<std::mutex>& lock);
    bool sleepUntilNeeded(std::unique_lock<std::mutex>& lock);
    bool isSurplus() const;
    void retireThisThread();
    bool waitForPlace(std::unique_lock<std::mutex>& lock);
    bool canLoseThread() const;
    Clock::time_point endOfPatience() const;
    std::optional<Clock::time_point> alarm() const;
    bool loseThreads(Clock::time_point now);
    std::vector<BlockingSection*>::const_iterator firstNotLost() const;

    const std::string label_;
    const std::size_t maximumThreads_;
    const ThreadPoolQueue::Options options_;

    std::mutex mutex_;  // guards all below
    std::condition_variable workAdded_;
    std::condition_variable earlierAlarm_;
    std::condition_variable placeFree_;
    std::deque<Work> ready_;
    DelayedWork delayed_;
    std::vector<Thread> threads_;
    std::vector<BlockingSection*> sections_;  // in the order in which they began
    std::size_t lost_ = 0;                    // how many of the sections count as lost
    std::size_t running_ = 0;                 // threads that run work and are not lost
    std::size_t returning_ = 0;  // threads whose section has ended and that wait for a place
    std::size_t sleeping_ = 0;   // threads that wait for `workAdded_`, without the waking ones
    std::size_t waking_ = 0;     // threads that were chosen to wake up but still sleep
    bool watchesClock_ = false;  // one thread waits for `watchedAlarm_`
    Clock::time_point watchedAlarm_;
    bool isThreadStarting_ = false;
    bool ending_ = false;
};

}  // namespace glintmark::platform
