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

    /// Absent when the parts form no URL: a scheme of wrong characters, or a path that does not
    /// begin with "/" behind a host.
    std::optional<URL> url() const;
};

}  // namespace glintmark
