#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace glintmark::platform {

/// The parts of an address as libcurl requests them: IPv4 addresses in the usual spelling, names in
/// ASCII (RFC 5891), escapes in the host decoded.
struct AddressParts {
    std::string scheme;
    std::string host;  ///< In lower case; an IPv6 address in brackets.
    std::uint16_t port;
};

/// User and password of an address that has them.
struct AddressCredentials {
    std::string origin;
    std::string userAndPassword;
    std::string withoutThem;  ///< The whole address.
};

/// Absent if libcurl refuses the address.
std::optional<AddressParts> addressParts(const std::string& url);

/// Absent if libcurl refuses the address or it has none.
std::optional<AddressCredentials> addressCredentials(const std::string& url);

/// The same as `addressParts` for the address of a proxy, whose scheme and port may be missing.
std::optional<AddressParts> proxyParts(const std::string& url);

/// True for the answers whose Location field is followed (RFC 9110, section 15.4).
constexpr bool isRedirect(long status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

/// The address that a redirect names.
struct RedirectTarget {
    std::string url;
    std::string host;  ///< In lower case.
    bool sameOrigin;   ///< Scheme, host and port equal those of the redirecting address.
};

/// Resolves the Location field `location` against `from`, the address that answered with it
/// (RFC 9110, section 10.2.2). Spaces and bytes beyond ASCII, which servers do send, are escaped.
/// The user and password of `from` are kept only within their origin, those of `location` never.
/// Absent if the address is not valid or its scheme is not http or https.
std::optional<RedirectTarget> redirectTarget(const std::string& from, const std::string& location);

}  // namespace glintmark::platform
