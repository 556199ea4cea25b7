#include "base/work/DispatchWorkItem.h"

#include <utility>

#include "base/work/DispatchQueue.h"

namespace glintmark {

DispatchWorkItem::DispatchWorkItem(std::function<void()> work) : work_(std::move(work)) {}

void DispatchWorkItem::perform() {
    std::function<void()> work;
    {
        const std::lock_guard lock(mutex_);
        work = std::exchange(work_, nullptr);
    }
    if (work) {
        work();
    }
}

void DispatchWorkItem::cancel() {
    std::function<void()> dropped;  // destroyed after unlocking, because that may be slow
    const std::lock_guard lock(mutex_);
    dropped.swap(work_);
}

void DispatchQueue::asyncAfter(std::chrono::nanoseconds delay,
                               std::shared_ptr<DispatchWorkItem> item) {
    asyncAfter(delay, [item = std::move(item)] { item->perform(); });
}

}  // namespace glintmark
