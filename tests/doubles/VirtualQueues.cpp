#include "tests/doubles/VirtualQueues.h"

#include <algorithm>
#include <utility>

namespace glintmark::doubles {

using std::chrono::nanoseconds;

struct VirtualQueues::Entry {
    nanoseconds due;
    std::uint64_t sequence;
    std::uint64_t queue;
    std::string label;
    bool isTimer;
    std::function<void()> work;
};

class VirtualQueues::Queue final : public DispatchQueue {
public:
    Queue(VirtualQueues& owner, std::string label, bool isSerial)
        : owner_(owner), id_(owner.nextQueue_++), label_(std::move(label)), isSerial_(isSerial) {
        owner_.liveSerialQueues_ += isSerial_ ? 1 : 0;
    }

    ~Queue() override {
        owner_.liveSerialQueues_ -= isSerial_ ? 1 : 0;
        owner_.drop(id_);
    }

    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    using DispatchQueue::asyncAfter;
    void async(Work work) override { asyncAfter(nanoseconds(0), std::move(work)); }
    void asyncAfter(nanoseconds delay, Work work) override {
        owner_.submit(*this, delay, std::move(work), false);
    }

    std::uint64_t id() const { return id_; }
    const std::string& label() const { return label_; }

private:
    VirtualQueues& owner_;
    std::uint64_t id_;
    std::string label_;
    bool isSerial_;
};

/// The entry of the next firing keeps the timer alive, as a run loop keeps its timers.
class VirtualQueues::RepeatingTimer final : public platform::Timer,
                                            public std::enable_shared_from_this<RepeatingTimer> {
public:
    RepeatingTimer(VirtualQueues& owner, nanoseconds interval, std::function<void()> block)
        : owner_(owner), interval_(interval), block_(std::move(block)) {
        ++owner_.activeTimers_;
    }

    void schedule() {
        auto fire = [self = shared_from_this()] { self->fire(); };
        next_ = owner_.submit(*owner_.main_, interval_, std::move(fire), true);
    }

    void invalidate() override {
        if (isValid_) {
            isValid_ = false;
            --owner_.activeTimers_;
            const auto keptToTheEnd = shared_from_this();
            const auto released = std::exchange(block_, nullptr);
            owner_.withdraw(next_);
        }
    }

private:
    void fire() {
        schedule();
        const auto block = block_;  // the block may invalidate its own timer
        block();
    }

    VirtualQueues& owner_;
    nanoseconds interval_;
    std::function<void()> block_;
    std::uint64_t next_ = 0;
    bool isValid_ = true;
};

VirtualQueues::VirtualQueues()
    : main_(std::make_unique<Queue>(*this, "main", false)),
      global_(std::make_unique<Queue>(*this, "global", false)),
      background_(std::make_unique<Queue>(*this, "background", false)) {}

VirtualQueues::~VirtualQueues() = default;

DispatchQueue& VirtualQueues::main() { return *main_; }

DispatchQueue& VirtualQueues::global(platform::QualityOfService /*quality*/) { return *global_; }

DispatchQueue& VirtualQueues::background() { return *background_; }

std::unique_ptr<DispatchQueue> VirtualQueues::makeSerial(const std::string& label) {
    return std::make_unique<Queue>(*this, label, true);
}

std::shared_ptr<platform::Timer> VirtualQueues::scheduleRepeating(nanoseconds interval,
                                                                  std::function<void()> block) {
    auto timer = std::make_shared<RepeatingTimer>(*this, interval, std::move(block));
    timer->schedule();
    return timer;
}

void VirtualQueues::runPending() {
    while (runNext(now_)) {
    }
}

void VirtualQueues::advance(nanoseconds duration) {
    const auto end = now_ + duration;
    while (runNext(end)) {
    }
    now_ = std::max(now_, end);  // work that ran may have let more time pass
}

void VirtualQueues::runUntilIdle() {
    while (pendingWork() > 0) {
        runNext(nanoseconds::max());
    }
}

std::size_t VirtualQueues::pendingWork() const {
    return static_cast<std::size_t>(std::count_if(
        entries_.begin(), entries_.end(), [](const Entry& entry) { return !entry.isTimer; }));
}

std::size_t VirtualQueues::activeTimers() const { return activeTimers_; }

std::size_t VirtualQueues::liveSerialQueues() const { return liveSerialQueues_; }

std::uint64_t VirtualQueues::submit(const Queue& queue, nanoseconds delay,
                                    std::function<void()> work, bool isTimer) {
    const auto due = now_ + std::max(delay, nanoseconds(0));
    const auto sequence = nextSequence_++;
    const auto place =
        std::upper_bound(entries_.begin(), entries_.end(), due,
                         [](nanoseconds time, const Entry& entry) { return time < entry.due; });
    entries_.insert(place, {due, sequence, queue.id(), queue.label(), isTimer, std::move(work)});
    return sequence;
}

void VirtualQueues::drop(std::uint64_t queue) {
    // Destroying dropped work may submit more work, so the dropped work is destroyed last.
    std::vector<Entry> dropped;
    for (auto& entry : entries_) {
        if (entry.queue == queue) {
            dropped.push_back(std::move(entry));
        }
    }
    std::erase_if(entries_, [queue](const Entry& entry) { return entry.queue == queue; });
}

void VirtualQueues::withdraw(std::uint64_t sequence) {
    std::function<void()> dropped;
    const auto entry = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry& e) { return e.sequence == sequence; });
    if (entry != entries_.end()) {
        dropped = std::move(entry->work);
        entries_.erase(entry);
    }
}

bool VirtualQueues::runNext(nanoseconds until) {
    if (entries_.empty() || entries_.front().due > until) {
        return false;
    }
    auto entry = std::move(entries_.front());
    entries_.erase(entries_.begin());
    now_ = std::max(now_, entry.due);
    auto outer = std::exchange(current_, entry.label);
    entry.work();
    entry.work = nullptr;  // destroyed while its queue is still the current one
    current_ = std::move(outer);
    return true;
}

}  // namespace glintmark::doubles
