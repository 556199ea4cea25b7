#pragma once

#include <gio/gio.h>

#include <chrono>
#include <functional>
#include <utility>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// Runs the default main context until `condition` holds; false when it does not within `limit`,
/// which only a failing test waits for.
inline bool waitUntil(const std::function<bool()>& condition,
                      std::chrono::seconds limit = std::chrono::seconds(20)) {
    // Conditions outside the context (another process, a file) are looked at every few
    // milliseconds.
    const GSourceId tick(g_timeout_add(
        2, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr));
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        g_main_context_iteration(nullptr, TRUE);
    }
    return true;
}

/// Runs `action` once from the main context, as soon as `condition` holds: what happens while the
/// code under test runs a loop of its own.
class DoWhen {
public:
    DoWhen(std::function<bool()> condition, std::function<void()> action)
        : condition_(std::move(condition)), action_(std::move(action)) {
        const auto look = [](gpointer data) -> gboolean {
            auto* self = static_cast<DoWhen*>(data);
            if (!self->condition_()) {
                return G_SOURCE_CONTINUE;
            }
            self->source_.forget();
            self->action_();
            return G_SOURCE_REMOVE;
        };
        source_ = GSourceId(g_timeout_add(1, look, this));
    }

private:
    std::function<bool()> condition_;
    std::function<void()> action_;
    GSourceId source_;
};

/// Runs what is ready now, without waiting.
inline void runPending() {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
}

}  // namespace glintmark::platform
