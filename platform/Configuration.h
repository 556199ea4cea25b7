#pragma once

#include <string>

namespace glintmark::platform {

/// Settings from the environment or the build.
struct Configuration {
    std::string faviconServiceAddress;  ///< Scheme and host; empty switches the service off.
    std::string productPageAddress;     ///< A URL.
};

}  // namespace glintmark::platform
