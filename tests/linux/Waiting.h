#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace glintmark::platform {

/// How long a test waits for a condition before it fails: long enough for a busy machine.
inline constexpr std::chrono::seconds waitingLimit{60};

/// Blocks the thread until `condition` holds, and checks it every millisecond. False after
/// `waitingLimit`. Where a main context must run meanwhile, use `waitUntil` in MainLoop.h.
inline bool waitFor(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + waitingLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace glintmark::platform
