#include "linux/queues/CoalescedTimeout.h"

namespace glintmark::platform {

namespace {

struct CoalescedSource {
    GSource base;
    gint64 mayFireFrom;  // on the clock of g_get_monotonic_time(3)
};

// GLib calls it before each wait of the loop, so also after each wake-up.
gboolean prepare(GSource* source, gint* /*timeout*/) {
    const auto from = reinterpret_cast<CoalescedSource*>(source)->mayFireFrom;
    return g_get_monotonic_time() >= from ? TRUE : FALSE;
}

gboolean dispatch(GSource* /*source*/, GSourceFunc callback, gpointer data) {
    return callback(data);
}

// Not const: g_source_new(3) takes and keeps a plain pointer.
GSourceFuncs coalescedFunctions = {
    .prepare = prepare,
    .check = nullptr,
    .dispatch = dispatch,
    .finalize = nullptr,
    .closure_callback = nullptr,
    .closure_marshal = nullptr,
};

}  // namespace

guint addCoalescedTimeout(std::chrono::milliseconds pause, GSourceFunc callback, gpointer data) {
    const auto microseconds = std::chrono::microseconds(pause).count();
    GSource* const source = g_source_new(&coalescedFunctions, sizeof(CoalescedSource));
    auto* const coalesced = reinterpret_cast<CoalescedSource*>(source);
    coalesced->mayFireFrom = g_get_monotonic_time() + microseconds;
    g_source_set_ready_time(source, coalesced->mayFireFrom + microseconds);
    g_source_set_callback(source, callback, data, nullptr);
    const guint id = g_source_attach(source, nullptr);
    g_source_unref(source);
    return id;
}

}  // namespace glintmark::platform
