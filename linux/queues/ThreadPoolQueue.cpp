#include "linux/queues/ThreadPoolQueue.h"

#include <utility>

#include "linux/queues/ThreadPool.h"

namespace glintmark::platform {

ThreadPoolQueue::ThreadPoolQueue(std::string label, std::size_t maximumThreads)
    : ThreadPoolQueue(std::move(label), maximumThreads, Options{}) {}

ThreadPoolQueue::ThreadPoolQueue(std::string label, std::size_t maximumThreads, Options options)
    : pool_(std::make_shared<ThreadPool>(std::move(label), maximumThreads, std::move(options))) {}

ThreadPoolQueue::~ThreadPoolQueue() { pool_->end(); }

void ThreadPoolQueue::async(Work work) {
    const auto pool = pool_;  // the work may destroy the queue
    pool->add(std::move(work));
}

void ThreadPoolQueue::asyncAfter(std::chrono::nanoseconds delay, Work work) {
    const auto pool = pool_;
    pool->addAt(DelayedWork::dueAfter(delay), std::move(work));
}

}  // namespace glintmark::platform
