#include "linux/queues/ReadyTimeSource.h"

#include <utility>

namespace glintmark::platform {

namespace {

using Dispatch = std::function<void()>;

gboolean dispatchCallback(GSource*, GSourceFunc callback, gpointer data) { return callback(data); }

gboolean runDispatch(gpointer data) {
    (*static_cast<Dispatch*>(data))();
    return G_SOURCE_CONTINUE;
}

void deleteDispatch(gpointer data) {
    const std::unique_ptr<Dispatch> owner(static_cast<Dispatch*>(data));
}

// Not const: g_source_new(3) takes and keeps a plain pointer.
GSourceFuncs readyTimeFunctions = {
    .prepare = nullptr,
    .check = nullptr,
    .dispatch = dispatchCallback,
    .finalize = nullptr,
    .closure_callback = nullptr,
    .closure_marshal = nullptr,
};

}  // namespace

ReadyTimeSource::ReadyTimeSource(GMainContext* context, const char* name,
                                 std::function<void()> dispatch)
    : source_(g_source_new(&readyTimeFunctions, sizeof(GSource))) {
    auto owned = std::make_unique<Dispatch>(std::move(dispatch));
    g_source_set_static_name(source_, name);
    // So that a nested loop, such as a dialog's, dispatches the source too.
    g_source_set_can_recurse(source_, TRUE);
    // If the source is destroyed during a dispatch, GLib keeps the data until the dispatch has
    // returned.
    g_source_set_callback(source_, runDispatch, owned.release(), deleteDispatch);
    g_source_attach(source_, context);
}

ReadyTimeSource::~ReadyTimeSource() {
    g_source_destroy(source_);
    g_source_unref(source_);
}

void ReadyTimeSource::setReadyTime(Clock::time_point time) {
    const auto sinceBoot = time.time_since_epoch();
    g_source_set_ready_time(source_,
                            std::chrono::ceil<std::chrono::microseconds>(sinceBoot).count());
}

void ReadyTimeSource::clearReadyTime() { g_source_set_ready_time(source_, -1); }

}  // namespace glintmark::platform
