#pragma once

#include <string>

namespace glintmark::platform {

/// What the one who starts or builds the program may set.
struct Configuration {
    std::string faviconServiceAddress;  ///< Scheme and host; empty switches the service off.
    std::string productPageAddress;     ///< A URL.
};

}  // namespace glintmark::platform
