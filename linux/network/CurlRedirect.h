#pragma once

#include <optional>
#include <string>

namespace glintmark::platform {

/// The address that a redirect names.
struct RedirectTarget {
    std::string url;
    std::string host;  ///< In lower case.
    bool sameOrigin;   ///< Scheme, host and port equal those of the redirecting address.
};

/// Resolves the Location field `location` against `from`, the address that answered with it
/// (RFC 9110, section 10.2.2). Spaces and bytes beyond ASCII, which servers do send, are escaped.
/// User and password are kept only within their origin. Absent if the address is not valid or its
/// scheme is not http or https.
std::optional<RedirectTarget> redirectTarget(const std::string& from, const std::string& location);

}  // namespace glintmark::platform
