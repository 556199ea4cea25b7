#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace glintmark {

/// The five components of a URI reference (RFC 3986, section 3), as written and still escaped.
struct URLParts {
    std::optional<std::string_view> scheme;
    std::optional<std::string_view> authority;
    std::string_view path;
    std::optional<std::string_view> query;
    std::optional<std::string_view> fragment;
};

/// Splits `text` and checks each component against the grammar of RFC 3986, section 4.1. Absent if
/// a component does not follow it. The views point into `text`. Linear time, no recursion.
std::optional<URLParts> splitURL(std::string_view text);

/// `text` with the square brackets after its authority escaped: the grammar allows none there, but
/// browsers write them unescaped.
std::string withBracketsEscaped(std::string_view text);

/// The host within a well-formed authority, as written, brackets included.
std::string_view hostOfAuthority(std::string_view authority);

/// Joins components (RFC 3986, section 5.3). Splitting the result gives the same components.
std::string joinURL(const URLParts& parts);

/// scheme (RFC 3986, section 3.1).
bool isURLScheme(std::string_view text);

/// IPv6address (RFC 3986, section 3.2.2), without brackets.
bool isIPv6Address(std::string_view text);

/// IP-literal (RFC 3986, section 3.2.2), with brackets.
bool isIPLiteral(std::string_view text);

/// `bytes` with every byte escaped that a path may not contain, and ";".
std::string escapedAsPath(std::string_view bytes);

/// `bytes` with every byte escaped that a registered name may not contain.
std::string escapedAsHost(std::string_view bytes);

/// `text` with its escapes undone. The escapes must be well-formed.
std::string unescaped(std::string_view text);

}  // namespace glintmark
