#pragma once

#include <string>

namespace glintmark::platform {

/// Settings from the environment or the build.
struct Configuration {
    /// The base address, which may have a path, without a slash at its end. Empty switches the
    /// service off.
    std::string faviconServiceAddress;
    std::string productPageAddress;  ///< A URL.
};

}  // namespace glintmark::platform
