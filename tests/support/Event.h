#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace glintmark::test {

/// How long a test waits before it fails.
inline constexpr std::chrono::seconds patience{30};

/// Something that happens once. Any thread.
class Event {
public:
    void set() {
        const std::lock_guard lock(mutex_);
        isSet_ = true;
        changed_.notify_all();
    }

    /// False if it has not happened after a generous time.
    bool wait() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, patience, [this] { return isSet_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isSet_ = false;
};

}  // namespace glintmark::test
