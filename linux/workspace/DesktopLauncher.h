#pragma once

#include <gio/gio.h>

#include <string>

namespace glintmark::platform {

/// Starts the user's program for `uri`: the default application of its type or scheme, else what
/// xdg-open(1) chooses. False when there is neither.
bool launchDefault(const std::string& uri);

/// Opens a window at a folder through the file manager on the bus (freedesktop.org,
/// org.freedesktop.FileManager1), else through the default application for folders. `connection`
/// may be null. False when no request could be made.
bool showFolder(GDBusConnection* connection, const std::string& uri);

}  // namespace glintmark::platform
