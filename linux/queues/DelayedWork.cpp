#include "linux/queues/DelayedWork.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace glintmark::platform {

DelayedWork::Clock::time_point DelayedWork::dueAfter(std::chrono::nanoseconds delay) {
    const auto now = Clock::now();
    return delay < Clock::time_point::max() - now ? now + delay : Clock::time_point::max();
}

void DelayedWork::add(Clock::time_point due, DispatchQueue::Work work) {
    heap_.push_back({due, submitted_++, std::move(work)});
    std::push_heap(heap_.begin(), heap_.end(), isLater);
}

void DelayedWork::moveDue(Clock::time_point now, std::deque<DispatchQueue::Work>& ready) {
    while (!heap_.empty() && heap_.front().due <= now) {
        std::pop_heap(heap_.begin(), heap_.end(), isLater);
        ready.push_back(std::move(heap_.back().work));
        heap_.pop_back();
    }
}

bool DelayedWork::isLater(const Item& a, const Item& b) {
    return std::tie(a.due, a.sequence) > std::tie(b.due, b.sequence);
}

}  // namespace glintmark::platform
