#pragma once

#include <string>

namespace glintmark::platform {

/// The file name of the image decoder, which is a separate program.
inline constexpr auto imageDecoderName = "glintmark-image-decoder";

/// The folder of the running program's file, without a trailing slash.
std::string programFolder();

/// The image decoder: beside the program, as in a build tree, else in `libexecFolder`, a path
/// relative to the program's folder, so that any prefix works.
std::string imageDecoderPath(const std::string& libexecFolder);

/// Sets HOME to the user's home folder and unsets folders that are relative. GLib would take these
/// as they are and write files below the current directory; the XDG Base Directory Specification
/// says to ignore them. Call it before other threads run.
void correctFoldersInEnvironment();

/// Makes the C library return freed memory to the system. By default, it raises its threshold for
/// mapped buffers whenever a larger one is freed, and makes an arena for each thread. It would then
/// keep the buffer of a 32 MB page forever. See mallopt(3). Call it before other threads run.
void limitAllocator();

/// The base address of the favicon service, without slashes at its end: the variable
/// GLINTMARK_FAVICON_SERVICE, also when it is empty, else the service of the default.
std::string faviconServiceAddress();

}  // namespace glintmark::platform
