#pragma once

#include <glib.h>

#include <chrono>
#include <functional>
#include <memory>

namespace glintmark::platform {

/// A GLib source that runs a function once its ready time has come, on the thread that iterates
/// its context. Until a ready time is set it never runs.
class ReadyTimeSource {
public:
    using Clock = std::chrono::steady_clock;  ///< The clock of g_get_monotonic_time(3), too.

    /// `context` is null for the default one. Destroying the source from `dispatch` is fine.
    ReadyTimeSource(GMainContext* context, const char* name, std::function<void()> dispatch);
    ~ReadyTimeSource();

    ReadyTimeSource(const ReadyTimeSource&) = delete;
    ReadyTimeSource& operator=(const ReadyTimeSource&) = delete;

    /// Any thread. A time that has passed means the next iteration.
    void setReadyTime(Clock::time_point time);
    void clearReadyTime();

private:
    GSource* source_;
};

}  // namespace glintmark::platform
