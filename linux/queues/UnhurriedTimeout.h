#pragma once

#include <glib.h>

#include <chrono>

namespace glintmark::platform {

/// Like g_timeout_add(3) for what is not urgent: once `pause` is over, `callback` runs as soon as
/// the main loop wakes up for something else, by itself when as long again has passed. A program
/// that wakes up now and then anyway is not woken for it. Default main context.
guint addUnhurriedTimeout(std::chrono::milliseconds pause, GSourceFunc callback, gpointer data);

}  // namespace glintmark::platform
