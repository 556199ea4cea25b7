#include "linux/queues/RunningCompletions.h"

namespace glintmark::platform {

void RunningCompletions::close() {
    std::unique_lock lock(mutex_);
    isClosed_ = true;
    ended_.wait(lock, [this] { return running_ == 0; });
}

bool RunningCompletions::begin() {
    const std::lock_guard lock(mutex_);
    running_ += isClosed_ ? 0 : 1;
    return !isClosed_;
}

void RunningCompletions::end() {
    const std::lock_guard lock(mutex_);
    --running_;
    ended_.notify_all();
}

}  // namespace glintmark::platform
