#pragma once

#include <string>

namespace glintmark::platform {

/// The file name of the image decoder, which is a separate program.
inline constexpr auto imageDecoderName = "glintmark-image-decoder";

/// The folder of the running program's file, without a trailing slash.
std::string programFolder();

/// Scheme and host of the favicon service: the variable GLINTMARK_FAVICON_SERVICE, also when it is
/// empty, else the service that the program uses by default.
std::string faviconServiceAddress();

}  // namespace glintmark::platform
