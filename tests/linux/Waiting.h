#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace glintmark::platform {

/// Waits until `condition` holds, looking again and again. False when it does not for so long that
/// it never will, on however busy a machine.
inline bool waitFor(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace glintmark::platform
