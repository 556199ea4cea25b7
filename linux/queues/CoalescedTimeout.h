#pragma once

#include <glib.h>

#include <chrono>

namespace glintmark::platform {

/// Like g_timeout_add(3), for work that is not urgent. After `pause`, `callback` runs with the next
/// wake-up of the main loop. If no wake-up happens before twice the pause has passed, the timeout
/// wakes the loop. So a program that wakes up often anyway gets no extra wake-ups. Default main
/// context.
guint addCoalescedTimeout(std::chrono::milliseconds pause, GSourceFunc callback, gpointer data);

}  // namespace glintmark::platform
