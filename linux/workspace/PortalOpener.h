#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

namespace glintmark::platform {

/// Has the desktop portal open `uri` with the user's program for it
/// (org.freedesktop.portal.OpenURI), which is then no child of this program. Returns at once.
/// `ended` runs once, perhaps before this returns: with false if there is no portal, it does not
/// take the request within ten seconds, or it cannot open `uri`. A user who refuses is no failure.
/// With `activationToken` (xdg-activation), if it is not empty, the program may take the focus.
/// Main thread only.
void openThroughPortal(GDBusConnection* connection, const std::string& uri,
                       const std::string& activationToken,
                       std::function<void(bool hasOpened)> ended);

}  // namespace glintmark::platform
