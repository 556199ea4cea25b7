#pragma once

#include <string>

namespace glintmark::platform {

/// What the environment or the build can configure.
struct Configuration {
    std::string faviconServiceAddress;  ///< Scheme and host; empty switches the service off.
    std::string productPageAddress;     ///< A URL.
};

}  // namespace glintmark::platform
