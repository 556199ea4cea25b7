#pragma once

#include <optional>
#include <string>

namespace glintmark::platform {

/// Where a redirect leads.
struct RedirectTarget {
    std::string url;
    std::string host;  ///< In lower case.
    bool sameOrigin;   ///< Scheme, host and port are those of the redirecting address.
};

/// What a Location field says, seen from the address that answered with it (RFC 9110, section
/// 10.2.2). Blanks and bytes beyond ASCII, which servers do write, are escaped. User and password
/// stay within their origin. Absent when it leads nowhere, or to another scheme than http or https.
std::optional<RedirectTarget> redirectTarget(const std::string& from, const std::string& location);

}  // namespace glintmark::platform
