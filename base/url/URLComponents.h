#pragma once

#include <optional>
#include <string>

#include "base/url/URL.h"

namespace glintmark {

/// Builds a URL from plain parts.
struct URLComponents {
    std::optional<std::string> scheme;
    std::optional<std::string> host;  ///< Escapes undone; an IPv6 address without brackets.
    std::string path;                 ///< Plain text; escaped as a path, "?" and "#" too.

    /// Absent if the parts form no URL: the scheme has wrong characters, a path after a host does
    /// not begin with "/", a path without a host begins with "//", or all parts are empty.
    std::optional<URL> url() const;
};

}  // namespace glintmark
