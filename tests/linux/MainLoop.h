#pragma once

#include <gio/gio.h>

#include <chrono>
#include <functional>
#include <utility>

#include "linux/glib/GLibHandles.h"
#include "tests/linux/Waiting.h"

namespace glintmark::platform {

/// Iterates `context`, which is the default one if null, until `condition` holds. False after
/// `waitingLimit`.
inline bool waitUntil(const std::function<bool()>& condition, GMainContext* context = nullptr) {
    // Nothing wakes the context for a condition outside it, such as a file or another process.
    // So the condition is also checked every two milliseconds.
    GSource* const tick = g_timeout_source_new(2);
    g_source_set_callback(
        tick, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
    g_source_attach(tick, context);
    const auto deadline = std::chrono::steady_clock::now() + waitingLimit;
    bool holds = condition();
    while (!holds && std::chrono::steady_clock::now() <= deadline) {
        g_main_context_iteration(context, TRUE);
        holds = condition();
    }
    g_source_destroy(tick);
    g_source_unref(tick);
    return holds;
}

/// Runs `action` once from the default main context, as soon as `condition` holds. For tests whose
/// code under test runs a nested loop.
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

/// Runs what is ready in the default main context, without waiting.
inline void runPending() {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
}

}  // namespace glintmark::platform
