#include "linux/queues/UnhurriedTimeout.h"

namespace glintmark::platform {

namespace {

struct UnhurriedSource {
    GSource base;
    gint64 welcomeFrom;  // on the clock of g_get_monotonic_time(3)
};

// Before each wait of the loop, so also after each wake-up.
gboolean prepare(GSource* source, gint* /*timeout*/) {
    const auto from = reinterpret_cast<UnhurriedSource*>(source)->welcomeFrom;
    return g_get_monotonic_time() >= from ? TRUE : FALSE;
}

gboolean dispatch(GSource* /*source*/, GSourceFunc callback, gpointer data) {
    return callback(data);
}

// g_source_new(3) keeps a pointer to it and takes it without const.
GSourceFuncs unhurriedFunctions = {
    .prepare = prepare,
    .check = nullptr,
    .dispatch = dispatch,
    .finalize = nullptr,
    .closure_callback = nullptr,
    .closure_marshal = nullptr,
};

}  // namespace

guint addUnhurriedTimeout(std::chrono::milliseconds pause, GSourceFunc callback, gpointer data) {
    const auto microseconds = std::chrono::microseconds(pause).count();
    GSource* const source = g_source_new(&unhurriedFunctions, sizeof(UnhurriedSource));
    auto* const unhurried = reinterpret_cast<UnhurriedSource*>(source);
    unhurried->welcomeFrom = g_get_monotonic_time() + microseconds;
    g_source_set_ready_time(source, unhurried->welcomeFrom + microseconds);
    g_source_set_callback(source, callback, data, nullptr);
    const guint id = g_source_attach(source, nullptr);
    g_source_unref(source);
    return id;
}

}  // namespace glintmark::platform
