#pragma once

#include <string>

namespace glintmark::platform {

/// The file name of the image decoder, which is a separate program.
inline constexpr auto imageDecoderName = "glintmark-image-decoder";

/// The folder of the running program's file, without a trailing slash.
std::string programFolder();

/// The base address of the favicon service, without slashes at its end: the variable
/// GLINTMARK_FAVICON_SERVICE, also when it is empty, else the service of the default.
std::string faviconServiceAddress();

}  // namespace glintmark::platform
