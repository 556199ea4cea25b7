#include "base/url/URLComponents.h"

#include "base/url/URLSyntax.h"

namespace glintmark {
namespace {

std::string escapedAuthority(const std::string& host) {
    if (isIPv6Address(host)) {
        return "[" + host + "]";
    }
    return isIPLiteral(host) ? host : escapedAsHost(host);
}

}  // namespace

std::optional<URL> URLComponents::url() const {
    if (scheme && !isURLScheme(*scheme)) {
        return std::nullopt;
    }
    // RFC 3986, section 3.3: after an authority a path is empty or begins with a slash. Without an
    // authority it does not begin with two slashes.
    if (host ? !path.empty() && !path.starts_with('/') : path.starts_with("//")) {
        return std::nullopt;
    }
    const auto escapedPath = escapedAsPath(path);
    URLParts parts;
    parts.path = escapedPath;
    if (scheme) {
        parts.scheme = *scheme;
    }
    const auto authority = host ? escapedAuthority(*host) : std::string();
    if (host) {
        parts.authority = authority;
    }
    return URL::parse(joinURL(parts));
}

}  // namespace glintmark
