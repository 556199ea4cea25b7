#include "linux/queues/GLibMainQueue.h"

#include <deque>
#include <mutex>
#include <utility>

#include "linux/queues/DelayedWork.h"
#include "linux/queues/ReadyTimeSource.h"

namespace glintmark::platform {

/// If the queue's own work destroys the queue, the state lives until that work has returned.
struct GLibMainQueue::State {
    void runOne();
    void updateReadyTime();

    std::mutex mutex;  // guards all below
    std::deque<Work> ready;
    DelayedWork delayed;
    std::unique_ptr<ReadyTimeSource> source;
};

GLibMainQueue::GLibMainQueue(GMainContext* context) : state_(std::make_shared<State>()) {
    state_->source = std::make_unique<ReadyTimeSource>(context, "GLibMainQueue",
                                                       [weak = std::weak_ptr<State>(state_)] {
                                                           if (const auto state = weak.lock()) {
                                                               state->runOne();
                                                           }
                                                       });
}

GLibMainQueue::~GLibMainQueue() {
    std::deque<Work> droppedReady;  // destroyed after unlocking, because that may be slow
    DelayedWork droppedDelayed;
    std::unique_ptr<ReadyTimeSource> source;
    const std::lock_guard lock(state_->mutex);
    droppedReady.swap(state_->ready);
    std::swap(droppedDelayed, state_->delayed);
    source.swap(state_->source);
}

void GLibMainQueue::async(Work work) {
    const std::lock_guard lock(state_->mutex);
    state_->ready.push_back(std::move(work));
    state_->updateReadyTime();
}

void GLibMainQueue::asyncAfter(std::chrono::nanoseconds delay, Work work) {
    const auto due = DelayedWork::dueAfter(delay);
    const std::lock_guard lock(state_->mutex);
    state_->delayed.add(due, std::move(work));
    state_->updateReadyTime();
}

void GLibMainQueue::State::runOne() {
    Work work;
    {
        const std::lock_guard lock(mutex);
        delayed.moveDue(DelayedWork::Clock::now(), ready);
        if (!ready.empty()) {
            work = std::move(ready.front());
            ready.pop_front();
        }
        updateReadyTime();
    }
    if (work) {
        work();
    }
}

void GLibMainQueue::State::updateReadyTime() {
    if (source == nullptr) {
        return;
    }
    if (!ready.empty()) {
        source->setReadyTime({});
    } else if (!delayed.empty()) {
        source->setReadyTime(delayed.nextDue());
    } else {
        source->clearReadyTime();
    }
}

}  // namespace glintmark::platform
