#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace glintmark::platform {

/// A thread with a name and a chosen stack size, which `std::thread` cannot set. A stack below
/// 2 MiB never becomes a huge page, so a sleeping thread costs a few kilobytes. It blocks all
/// signals, so that the main thread handles them; writing to a closed connection returns an error
/// instead of raising SIGPIPE.
class Thread {
public:
    Thread() = default;

    /// Absent if the system has no thread left. Tools show the first 15 bytes of `name`.
    static std::optional<Thread> start(const std::string& name, std::size_t stackBytes,
                                       std::function<void()> body);

    /// Starts a thread that nobody joins. False if the system has no thread left.
    static bool startDetached(const std::string& name, std::size_t stackBytes,
                              std::function<void()> body);

    Thread(Thread&& other) noexcept;
    Thread& operator=(Thread&& other) noexcept;
    ~Thread();  ///< Joins, unless already joined or detached.

    bool isCurrent() const;
    bool is(pthread_t other) const;  ///< False once joined or detached.
    void join();
    void detach();

private:
    pthread_t handle_{};
    bool joinable_ = false;
};

/// Lowers the priority of the calling thread below that of the main thread, which the user waits
/// for: setpriority(2). The timed waits of a thread with lower priority end up to 2 ms late.
void lowerPriorityBelowMainThread();

}  // namespace glintmark::platform
