#include "linux/queues/GLibTimers.h"

#include <algorithm>
#include <utility>

#include "linux/queues/ReadyTimeSource.h"

namespace glintmark::platform {

namespace {

using Clock = ReadyTimeSource::Clock;

constexpr std::chrono::nanoseconds minimumInterval = std::chrono::milliseconds(1);

class GLibTimer : public Timer, public std::enable_shared_from_this<GLibTimer> {
public:
    GLibTimer(std::chrono::nanoseconds interval, std::function<void()> block)
        : interval_(std::max(interval, minimumInterval)),
          due_(Clock::now() + interval_),
          block_(std::make_shared<std::function<void()>>(std::move(block))) {}

    /// From now until `invalidate()`, the source and the timer keep each other alive.
    void schedule(GMainContext* context) {
        source_ = std::make_unique<ReadyTimeSource>(context, "GLibTimer",
                                                    [self = shared_from_this()] { self->fire(); });
        source_->setReadyTime(due_);
    }

    void invalidate() override {
        const auto block = std::move(block_);  // destroyed last: it may own the timer
        const auto source = std::move(source_);
    }

private:
    void fire() {
        due_ += interval_ * ((Clock::now() - due_) / interval_ + 1);
        source_->setReadyTime(due_);
        const auto block = block_;  // stays alive if it invalidates the timer
        (*block)();
    }

    const std::chrono::nanoseconds interval_;
    Clock::time_point due_;
    std::shared_ptr<std::function<void()>> block_;
    std::unique_ptr<ReadyTimeSource> source_;
};

}  // namespace

std::shared_ptr<Timer> GLibTimers::scheduleRepeating(std::chrono::nanoseconds interval,
                                                     std::function<void()> block) {
    auto timer = std::make_shared<GLibTimer>(interval, std::move(block));
    timer->schedule(context_);
    return timer;
}

}  // namespace glintmark::platform
