#include <glib.h>

namespace {

/// GIO in these tests leaves the metadata daemon and the settings of the one who runs them alone.
[[maybe_unused]] const bool localFilesOnly = g_setenv("GIO_USE_VFS", "local", TRUE) != FALSE &&
                                             g_setenv("GSETTINGS_BACKEND", "memory", TRUE) != FALSE;

}  // namespace
