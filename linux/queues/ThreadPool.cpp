#include "linux/queues/ThreadPool.h"

#include <algorithm>
#include <utility>

namespace glintmark::platform {

namespace {

constexpr std::size_t stackBytes = std::size_t{1024} * 1024;

// How long a section may last while other work waits. A disk that has to spin up takes longer, but
// then an additional thread does no harm.
constexpr std::chrono::milliseconds patience{200};

thread_local ThreadPool* poolOfThisThread = nullptr;

}  // namespace

BlockingSection::BlockingSection()
    : pool_(ThreadPool::current() != nullptr ? ThreadPool::current()->shared_from_this()
                                             : nullptr) {
    if (pool_ != nullptr) {
        pool_->beginSection(*this);
    }
}

BlockingSection::~BlockingSection() {
    if (pool_ != nullptr) {
        pool_->endSection(*this);
    }
}

ThreadPool::ThreadPool(std::string label, std::size_t maximumThreads,
                       ThreadPoolQueue::Options options)
    : label_(std::move(label)), maximumThreads_(maximumThreads), options_(std::move(options)) {}

ThreadPool* ThreadPool::current() { return poolOfThisThread; }

void ThreadPool::notify(Wake wake) {
    if (wake != nullptr) {
        wake->notify_one();
    }
}

void ThreadPool::add(Work work) {
    Wake wake = nullptr;
    {
        const std::lock_guard lock(mutex_);
        ready_.push_back(std::move(work));
        wake = findThreadForReady();
    }
    notify(wake);
}

void ThreadPool::addAt(Clock::time_point due, Work work) {
    Wake wake = nullptr;
    {
        const std::lock_guard lock(mutex_);
        const bool isEarliest = delayed_.empty() || due < delayed_.nextDue();
        delayed_.add(due, std::move(work));
        if (isEarliest) {
            wake = findThreadForAlarm();
        }
    }
    notify(wake);
}

void ThreadPool::end() {
    std::deque<Work> droppedReady;  // destroyed after unlocking, because that may be slow
    DelayedWork droppedDelayed;
    std::vector<Thread> threads;
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
        droppedReady.swap(ready_);
        std::swap(droppedDelayed, delayed_);
        threads.swap(threads_);
        for (auto& thread : threads) {
            const auto isOfThread = [&](const auto* section) {
                return thread.is(section->thread_);
            };
            if (thread.isCurrent() || std::ranges::any_of(sections_, isOfThread)) {
                thread.detach();
            }
        }
    }
    workAdded_.notify_all();
    earlierAlarm_.notify_all();
    placeFree_.notify_all();
    // The destructors of the threads that are not detached join them.
}

void ThreadPool::beginSection(BlockingSection& section) {
    Wake wake = nullptr;
    {
        const std::lock_guard lock(mutex_);
        section.begin_ = Clock::now();
        sections_.push_back(&section);
        if (returning_ > 0) {
            placeFree_.notify_all();  // they must look again when this section lasts too long
        }
        if (alarm() && !watchesClock_ && waking_ == 0) {
            wake = findThreadForAlarm();
        }
    }
    notify(wake);
}

void ThreadPool::endSection(BlockingSection& section) {
    bool hasLost = false;
    {
        std::unique_lock lock(mutex_);
        std::erase(sections_, &section);
        if (section.isLost_) {
            --lost_;
            hasLost = waitForPlace(lock);
        }
    }
    if (hasLost) {
        options_.onLoss();
    }
}

/// True if another thread was lost meanwhile.
bool ThreadPool::waitForPlace(std::unique_lock<std::mutex>& lock) {
    bool hasLost = false;
    ++returning_;
    while (running_ >= maximumThreads_ && !ending_) {
        if (loseThreads(Clock::now())) {
            hasLost = true;
        } else if (canLoseThread()) {
            placeFree_.wait_until(lock, endOfPatience());
        } else {
            placeFree_.wait(lock);
        }
    }
    --returning_;
    ++running_;
    return hasLost;
}

/// True if a thread may begin work. A thread that returns from its section comes first.
bool ThreadPool::hasPlace() const { return running_ + returning_ < maximumThreads_; }

/// Makes sure that a thread takes the ready work: a sleeping one, or else a new one. If all places
/// are taken, the next free thread takes it, and an alarm is set for threads that may be lost. Each
/// waking thread takes one piece of work.
ThreadPool::Wake ThreadPool::findThreadForReady() {
    if (!hasPlace()) {
        return canLoseThread() ? findThreadForAlarm() : nullptr;
    }
    if (ready_.size() <= waking_) {
        return nullptr;
    }
    if (sleeping_ > 0) {
        return wakeSleeper();
    }
    if (watchesClock_) {
        return &earlierAlarm_;
    }
    addThread();
    return nullptr;
}

/// Makes sure that a thread waits for the next alarm, of which there is one.
ThreadPool::Wake ThreadPool::findThreadForAlarm() {
    if (watchesClock_) {
        return *alarm() < watchedAlarm_ ? &earlierAlarm_ : nullptr;
    }
    if (sleeping_ > 0) {
        return wakeSleeper();
    }
    addThread();
    return nullptr;
}

ThreadPool::Wake ThreadPool::wakeSleeper() {
    --sleeping_;
    ++waking_;
    return &workAdded_;
}

/// Adds no thread while another starts, because the starting one looks at all work. If the system
/// has no thread left, the existing threads do the work; without any, the work waits for the next
/// call.
void ThreadPool::addThread() {
    const auto limit = maximumThreads_ + std::min(sections_.size(), options_.maximumLostThreads);
    if (!isThreadStarting_ && threads_.size() < limit && !ending_) {
        auto thread =
            Thread::start(label_, stackBytes, [self = shared_from_this()] { self->runThread(); });
        isThreadStarting_ = thread.has_value();
        if (thread) {
            threads_.push_back(*std::move(thread));
        }
    }
}

void ThreadPool::runThread() {
    poolOfThisThread = this;
    if (options_.priority == ThreadPriority::belowMainThread) {
        lowerPriorityBelowMainThread();
    }
    std::unique_lock lock(mutex_);
    isThreadStarting_ = false;
    bool isNeeded = true;
    while (isNeeded && !ending_) {
        const auto now = Clock::now();
        delayed_.moveDue(now, ready_);
        if (loseThreads(now)) {
            lock.unlock();
            options_.onLoss();
            lock.lock();
        }
        if (!ready_.empty() && hasPlace()) {
            runWork(lock);
        } else {
            isNeeded = sleepUntilNeeded(lock);
        }
    }
}

void ThreadPool::runWork(std::unique_lock<std::mutex>& lock) {
    Work work = std::move(ready_.front());
    ready_.pop_front();
    ++running_;
    Wake wake = nullptr;
    if (!ready_.empty()) {
        wake = findThreadForReady();
    } else if (!delayed_.empty() && !watchesClock_) {
        wake = findThreadForAlarm();
    }
    lock.unlock();
    notify(wake);
    work();
    work = nullptr;  // destroys what it owns, also without the lock
    lock.lock();
    --running_;
    if (returning_ > 0) {
        placeFree_.notify_one();
    }
}

/// False if the thread must end because the pool has more threads than it needs.
bool ThreadPool::sleepUntilNeeded(std::unique_lock<std::mutex>& lock) {
    const auto next = alarm();
    if (next && !watchesClock_) {
        watchesClock_ = true;
        watchedAlarm_ = *next;
        earlierAlarm_.wait_until(lock, *next);
        watchesClock_ = false;
        return true;
    }
    if (isSurplus()) {
        retireThisThread();
        return false;
    }
    ++sleeping_;
    workAdded_.wait(lock, [this] { return waking_ > 0 || ending_; });
    waking_ -= ending_ ? 0 : 1;
    return true;
}

bool ThreadPool::isSurplus() const {
    return !ending_ && threads_.size() > maximumThreads_ + sections_.size();
}

void ThreadPool::retireThisThread() {
    const auto own = std::ranges::find_if(threads_, &Thread::isCurrent);
    own->detach();
    threads_.erase(own);
}

std::vector<BlockingSection*>::const_iterator ThreadPool::firstNotLost() const {
    return std::ranges::find(sections_, false, &BlockingSection::isLost_);
}

/// True if ready work or a returning thread waits for the place of a thread inside a section.
bool ThreadPool::canLoseThread() const {
    return (!ready_.empty() || returning_ > 0) && running_ >= maximumThreads_ &&
           lost_ < options_.maximumLostThreads && firstNotLost() != sections_.end();
}

/// When the next thread counts as lost, if one can.
ThreadPool::Clock::time_point ThreadPool::endOfPatience() const {
    return (*firstNotLost())->begin_ + patience;
}

/// When a thread must look next; absent if none must.
std::optional<ThreadPool::Clock::time_point> ThreadPool::alarm() const {
    std::optional<Clock::time_point> next;
    if (!delayed_.empty()) {
        next = delayed_.nextDue();
    }
    if (canLoseThread()) {
        next = std::min(next.value_or(endOfPatience()), endOfPatience());
    }
    return next;
}

/// Frees the places of threads whose sections have lasted too long, as far as they are needed. True
/// if there were any.
bool ThreadPool::loseThreads(Clock::time_point now) {
    const auto before = lost_;
    while (canLoseThread() && endOfPatience() <= now) {
        (*firstNotLost())->isLost_ = true;
        ++lost_;
        --running_;
        placeFree_.notify_one();
    }
    return lost_ > before;
}

}  // namespace glintmark::platform
