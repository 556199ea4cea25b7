#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <vector>

#include "base/work/DispatchQueue.h"

namespace glintmark::platform {

/// A heap of delayed work, ordered by due time, then by order of submission. The clock is
/// CLOCK_MONOTONIC. Not thread-safe: the owner's lock guards it.
class DelayedWork {
public:
    using Clock = std::chrono::steady_clock;

    /// Now plus `delay`; the clock's maximum if that would overflow.
    static Clock::time_point dueAfter(std::chrono::nanoseconds delay);

    void add(Clock::time_point due, DispatchQueue::Work work);
    bool empty() const { return heap_.empty(); }
    Clock::time_point nextDue() const { return heap_.front().due; }  ///< Must not be empty.

    /// Moves the work that is due at `now` to the end of `ready`.
    void moveDue(Clock::time_point now, std::deque<DispatchQueue::Work>& ready);

private:
    struct Item {
        Clock::time_point due;
        std::uint64_t sequence;
        DispatchQueue::Work work;
    };

    static bool isLater(const Item& a, const Item& b);

    std::vector<Item> heap_;
    std::uint64_t submitted_ = 0;
};

}  // namespace glintmark::platform
