#include "base/work/DispatchGroup.h"

#include <mutex>
#include <utility>
#include <vector>

#include "base/system/FatalError.h"
#include "base/work/DispatchQueue.h"

namespace glintmark {

namespace {

struct Notification {
    DispatchQueue* queue;
    std::function<void()> work;
};

void submit(std::vector<Notification> notifications) {
    for (auto& notification : notifications) {
        notification.queue->async(std::move(notification.work));
    }
}

}  // namespace

struct DispatchGroup::State {
    std::mutex mutex;
    int entered = 0;
    std::vector<Notification> waiting;
};

DispatchGroup::DispatchGroup() : state_(std::make_shared<State>()) {}

void DispatchGroup::enter() const {
    const std::lock_guard lock(state_->mutex);
    ++state_->entered;
}

void DispatchGroup::leave() const {
    std::vector<Notification> due;
    {
        const std::lock_guard lock(state_->mutex);
        if (state_->entered == 0) {
            fatalError("Unbalanced call to DispatchGroup::leave()");
        }
        if (--state_->entered == 0) {
            due = std::exchange(state_->waiting, {});
        }
    }
    submit(std::move(due));
}

void DispatchGroup::notify(DispatchQueue& queue, std::function<void()> work) const {
    std::vector<Notification> due;
    {
        const std::lock_guard lock(state_->mutex);
        auto& list = state_->entered == 0 ? due : state_->waiting;
        list.push_back({&queue, std::move(work)});
    }
    submit(std::move(due));
}

}  // namespace glintmark
