#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace glintmark::platform {

/// A thread with a name and a stack of a chosen size, which `std::thread` cannot give. Stacks
/// smaller than 2 MiB never become huge pages, so a sleeping thread costs a few kilobytes.
class Thread {
public:
    Thread() = default;

    /// Absent when the system has no thread left. It shows the first 15 bytes of `name`.
    static std::optional<Thread> start(const std::string& name, std::size_t stackBytes,
                                       std::function<void()> body);

    /// Starts a thread that nobody joins. False when the system has none left.
    static bool startDetached(const std::string& name, std::size_t stackBytes,
                              std::function<void()> body);

    Thread(Thread&& other) noexcept;
    Thread& operator=(Thread&& other) noexcept;
    ~Thread();  ///< Joins, unless joined or detached already.

    bool isCurrent() const;
    void join();
    void detach();

private:
    pthread_t handle_{};
    bool joinable_ = false;
};

/// Puts the calling thread behind the main thread, which the user waits for. Its timed waits end up
/// to 2 ms late. setpriority(2).
void yieldToMainThread();

}  // namespace glintmark::platform
