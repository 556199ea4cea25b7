#pragma once

#include <condition_variable>
#include <mutex>

namespace glintmark::platform {

/// The completions that a service runs on a queue, so that it can end without one running. Any
/// thread.
class RunningCompletions {
public:
    /// Runs `completion`, unless `close` was called before.
    template <typename Completion>
    void run(const Completion& completion) {
        if (begin()) {
            completion();
            end();
        }
    }

    /// Waits until no completion runs. None starts afterwards. Must not be called from one.
    void close();

private:
    bool begin();
    void end();

    std::mutex mutex_;
    std::condition_variable ended_;
    int running_ = 0;
    bool isClosed_ = false;
};

}  // namespace glintmark::platform
