#include <glib.h>

namespace {

/// Keeps GIO in these tests from the user's metadata daemon and settings.
[[maybe_unused]] const bool localFilesOnly = g_setenv("GIO_USE_VFS", "local", TRUE) != FALSE &&
                                             g_setenv("GSETTINGS_BACKEND", "memory", TRUE) != FALSE;

}  // namespace
