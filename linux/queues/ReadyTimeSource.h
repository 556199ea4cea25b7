#pragma once

#include <glib.h>

#include <chrono>
#include <functional>
#include <memory>

namespace glintmark::platform {

/// A GLib source that runs a function each time its ready time is reached, on the thread that
/// iterates its context. It never runs while no ready time is set.
class ReadyTimeSource {
public:
    using Clock = std::chrono::steady_clock;  ///< Also that of g_get_monotonic_time(3).

    /// `context` is null for the default one. `dispatch` may destroy the source.
    ReadyTimeSource(GMainContext* context, const char* name, std::function<void()> dispatch);
    ~ReadyTimeSource();

    ReadyTimeSource(const ReadyTimeSource&) = delete;
    ReadyTimeSource& operator=(const ReadyTimeSource&) = delete;

    /// Any thread. A time in the past means the next iteration. The time stays set until it is
    /// changed or cleared.
    void setReadyTime(Clock::time_point time);
    void clearReadyTime();

private:
    GSource* source_;
};

}  // namespace glintmark::platform
