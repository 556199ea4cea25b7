#include "base/url/URLSyntax.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace glintmark {
namespace {

// The character classes of RFC 3986, sections 2.2 and 2.3.
constexpr std::string_view digits = "0123456789";
constexpr std::string_view hexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view unreservedMarks = "-._~";
constexpr std::string_view subDelimiters = "!$&'()*+,;=";

/// A set of bytes. Testing a byte takes one array access.
class ByteSet {
public:
    constexpr ByteSet(std::initializer_list<std::string_view> pieces) {
        for (const auto piece : pieces) {
            for (const char c : piece) {
                bytes_[static_cast<unsigned char>(c)] = true;
            }
        }
    }

    constexpr bool contains(char c) const { return bytes_[static_cast<unsigned char>(c)]; }

    bool containsAll(std::string_view text) const {
        return std::all_of(text.begin(), text.end(), [this](char c) { return contains(c); });
    }

private:
    std::array<bool, 256> bytes_{};
};

constexpr ByteSet digitSet = {digits};
constexpr ByteSet hexDigitSet = {hexDigits};
constexpr ByteSet letterSet = {letters};
constexpr ByteSet schemeSet = {letters, digits, "+-."};
constexpr ByteSet registeredNameSet = {letters, digits, unreservedMarks, subDelimiters};
constexpr ByteSet userInfoSet = {letters, digits, unreservedMarks, subDelimiters, ":"};
constexpr ByteSet pathSet = {letters, digits, unreservedMarks, subDelimiters, ":@/"};
constexpr ByteSet querySet = {letters, digits, unreservedMarks, subDelimiters, ":@/?"};
// Without ";", which begins the parameters of a path segment: in plain text it is escaped.
constexpr ByteSet plainPathSet = {letters, digits, unreservedMarks, "!$&'()*+,=", ":@/"};

/// True if `text` has only bytes of `plain` and well-formed escapes (RFC 3986, section 2.1).
bool isMadeOf(const ByteSet& plain, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (plain.contains(text[i])) {
            continue;
        }
        if (text[i] != '%' || text.size() - i < 3 || !hexDigitSet.contains(text[i + 1]) ||
            !hexDigitSet.contains(text[i + 2])) {
            return false;
        }
        i += 2;
    }
    return true;
}

std::string escaped(std::string_view bytes, const ByteSet& plain) {
    constexpr std::string_view upperHexDigits = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size());
    for (const char c : bytes) {
        if (plain.contains(c)) {
            text += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            text += {'%', upperHexDigits[byte >> 4U], upperHexDigits[byte & 15U]};
        }
    }
    return text;
}

unsigned hexValue(char digit) {
    if (digit >= 'a') {
        return static_cast<unsigned>(digit - 'a') + 10;
    }
    return static_cast<unsigned>(digit >= 'A' ? digit - 'A' + 10 : digit - '0');
}

/// IPvFuture (RFC 3986, section 3.2.2).
bool isFutureAddress(std::string_view text) {
    if (text.empty() || (text[0] != 'v' && text[0] != 'V')) {
        return false;
    }
    const auto dot = text.find('.');
    return dot != std::string_view::npos && dot > 1 && dot + 1 < text.size() &&
           hexDigitSet.containsAll(text.substr(1, dot - 1)) &&
           userInfoSet.containsAll(text.substr(dot + 1));
}

std::string_view withoutUserInfo(std::string_view authority) {
    const auto at = authority.find('@');
    return at == std::string_view::npos ? authority : authority.substr(at + 1);
}

/// authority (RFC 3986, section 3.2).
bool isAuthority(std::string_view text) {
    const auto hostAndPort = withoutUserInfo(text);
    if (hostAndPort.size() != text.size() &&
        !isMadeOf(userInfoSet, text.substr(0, text.size() - hostAndPort.size() - 1))) {
        return false;
    }
    const auto host = hostOfAuthority(text);
    if (!host.empty() && host.front() == '[' ? !isIPLiteral(host)
                                             : !isMadeOf(registeredNameSet, host)) {
        return false;
    }
    const auto port = hostAndPort.substr(host.size());
    return port.empty() || (port.front() == ':' && digitSet.containsAll(port.substr(1)));
}

/// The index where the path begins: after the scheme and the authority, if there are any.
std::size_t pathStart(std::string_view text) {
    const auto mark = text.find_first_of(":/?#");
    const std::size_t start = mark != std::string_view::npos && text[mark] == ':' ? mark + 1 : 0;
    if (!text.substr(start).starts_with("//")) {
        return start;
    }
    return std::min(text.find_first_of("/?#", start + 2), text.size());
}

/// Cuts `rest` at the first `mark`. Returns what followed the mark; absent if there is none.
std::optional<std::string_view> cutOffTail(char mark, std::string_view& rest) {
    const auto position = rest.find(mark);
    if (position == std::string_view::npos) {
        return std::nullopt;
    }
    const auto tail = rest.substr(position + 1);
    rest = rest.substr(0, position);
    return tail;
}

}  // namespace

std::optional<URLParts> splitURL(std::string_view text) {
    URLParts parts;
    auto rest = text;
    // A colon in the first segment ends a scheme; a relative reference has none there
    // (path-noscheme, section 3.3).
    const auto mark = rest.find_first_of(":/?#");
    if (mark != std::string_view::npos && rest[mark] == ':') {
        parts.scheme = rest.substr(0, mark);
        rest = rest.substr(mark + 1);
    }
    parts.fragment = cutOffTail('#', rest);
    parts.query = cutOffTail('?', rest);
    if (rest.starts_with("//")) {
        const auto end = std::min(rest.find('/', 2), rest.size());
        parts.authority = rest.substr(2, end - 2);
        rest = rest.substr(end);
    }
    parts.path = rest;
    const bool wellFormed = (!parts.scheme || isURLScheme(*parts.scheme)) &&
                            (!parts.authority || isAuthority(*parts.authority)) &&
                            isMadeOf(pathSet, parts.path) &&
                            (!parts.query || isMadeOf(querySet, *parts.query)) &&
                            (!parts.fragment || isMadeOf(querySet, *parts.fragment));
    return wellFormed ? std::optional(parts) : std::nullopt;
}

std::string withBracketsEscaped(std::string_view text) {
    const auto start = pathStart(text);
    const auto rest = text.substr(start);
    if (rest.find('[') == std::string_view::npos && rest.find(']') == std::string_view::npos) {
        return std::string(text);  // a test far cheaper than the loop
    }
    std::string result(text.substr(0, start));
    result.reserve(text.size());
    for (const char c : rest) {
        if (c == '[') {
            result += "%5B";
        } else if (c == ']') {
            result += "%5D";
        } else {
            result += c;
        }
    }
    return result;
}

std::string_view hostOfAuthority(std::string_view authority) {
    const auto hostAndPort = withoutUserInfo(authority);
    if (!hostAndPort.empty() && hostAndPort.front() == '[') {
        const auto bracket = hostAndPort.find(']');
        return hostAndPort.substr(0, bracket == std::string_view::npos ? bracket : bracket + 1);
    }
    return hostAndPort.substr(0, hostAndPort.find(':'));
}

std::string joinURL(const URLParts& parts) {
    std::string text;
    if (parts.scheme) {
        text.append(*parts.scheme).append(":");
    }
    if (parts.authority) {
        text.append("//").append(*parts.authority);
    } else if (parts.path.starts_with("//")) {
        text += "/.";  // otherwise the path would be parsed as an authority
    } else if (!parts.scheme &&
               parts.path.substr(0, parts.path.find('/')).find(':') != std::string_view::npos) {
        text += "./";  // otherwise the first segment would be parsed as a scheme (section 4.2)
    }
    text += parts.path;
    if (parts.query) {
        text.append("?").append(*parts.query);
    }
    if (parts.fragment) {
        text.append("#").append(*parts.fragment);
    }
    return text;
}

bool isURLScheme(std::string_view text) {
    return !text.empty() && letterSet.contains(text.front()) && schemeSet.containsAll(text);
}

bool isIPv6Address(std::string_view text) {
    // The longest form is six groups and an IPv4 address.
    constexpr std::size_t maximumSize =
        std::string_view("ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255").size();
    if (text.size() > maximumSize || text.find('\0') != std::string_view::npos) {
        return false;
    }
    in6_addr address{};
    return inet_pton(AF_INET6, std::string(text).c_str(), &address) == 1;
}

bool isIPLiteral(std::string_view text) {
    if (text.size() < 2 || text.front() != '[' || text.back() != ']') {
        return false;
    }
    const auto address = text.substr(1, text.size() - 2);
    return isIPv6Address(address) || isFutureAddress(address);
}

std::string escapedAsPath(std::string_view bytes) { return escaped(bytes, plainPathSet); }

std::string escapedAsHost(std::string_view bytes) { return escaped(bytes, registeredNameSet); }

std::string unescaped(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            bytes += static_cast<char>(hexValue(text[i + 1]) << 4U | hexValue(text[i + 2]));
            i += 2;
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

}  // namespace glintmark
