#pragma once

#include <functional>
#include <mutex>

namespace glintmark {

/// A block of work that runs at most once and can be cancelled until it begins. Any thread.
class DispatchWorkItem {
public:
    explicit DispatchWorkItem(std::function<void()> work);

    /// Runs the work, unless it was cancelled or has begun already.
    void perform();

    /// After this call the work does not begin any more. Work that has begun finishes.
    void cancel();

private:
    std::mutex mutex_;
    std::function<void()> work_;
};

}  // namespace glintmark
