#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

namespace glintmark::platform {

/// Has the desktop portal open `uri` with the user's program for it
/// (org.freedesktop.portal.OpenURI), which is then no child of this program. Returns at once.
/// `otherwise` runs once, perhaps before this returns, if there is no portal, it does not answer
/// within ten seconds, or it cannot open `uri`. A user who refuses is no failure. Main thread only.
void openThroughPortal(GDBusConnection* connection, const std::string& uri,
                       std::function<void()> otherwise);

}  // namespace glintmark::platform
