#pragma once

#include <gio/gio.h>

#include <string>

namespace glintmark::platform {

/// Opens `uri` with the default application for its type or scheme, else with xdg-open(1). False
/// when neither can be started.
bool launchDefault(const std::string& uri);

/// Opens `uri` through the desktop portal, else as `launchDefault` does. `connection` may be null.
/// False when no request could be made.
bool openAddress(GDBusConnection* connection, const std::string& uri);

/// Opens a window at the folder `uri` by the file manager on the bus (freedesktop.org,
/// org.freedesktop.FileManager1), else as `openAddress` does. `connection` may be null. False when
/// no request could be made.
bool showFolder(GDBusConnection* connection, const std::string& uri);

}  // namespace glintmark::platform
