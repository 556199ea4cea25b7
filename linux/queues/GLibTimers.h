#pragma once

#include <glib.h>

#include "platform/Timer.h"

namespace glintmark::platform {

/// Timers on a GLib main context. They fire at whole multiples of their interval after their
/// creation, even if an earlier firing was late.
class GLibTimers : public Timers {
public:
    /// `context` is null for the default one, the main thread's.
    explicit GLibTimers(GMainContext* context = nullptr) : context_(context) {}

    std::shared_ptr<Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                             std::function<void()> block) override;

private:
    GMainContext* context_;
};

}  // namespace glintmark::platform
