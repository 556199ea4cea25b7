#include "base/url/URL.h"

#include <algorithm>

#include "base/url/URLSyntax.h"

namespace glintmark {
namespace {

/// Absent for an empty host.
std::optional<std::string> plainHost(std::string_view host) {
    if (host.starts_with('[')) {
        host = host.substr(1, host.size() - 2);
    }
    if (host.empty()) {
        return std::nullopt;
    }
    return unescaped(host);
}

/// remove_dot_segments (RFC 3986, section 5.2.4).
std::string withoutDotSegments(std::string_view input) {
    std::string output;
    output.reserve(input.size());
    while (!input.empty()) {
        if (input.starts_with("../")) {  // step 2A
            input.remove_prefix(3);
        } else if (input.starts_with("./") || input.starts_with("/./")) {  // steps 2A and 2B
            input.remove_prefix(2);
        } else if (input == "/.") {  // step 2B
            input = "/";
        } else if (input.starts_with("/../") || input == "/..") {  // step 2C
            input = input.size() == 3 ? "/" : input.substr(3);
            const auto slash = output.rfind('/');
            output.resize(slash == std::string::npos ? 0 : slash);
        } else if (input == "." || input == "..") {  // step 2D
            input = {};
        } else {  // step 2E
            const auto end = std::min(input.find('/', 1), input.size());
            output += input.substr(0, end);
            input.remove_prefix(end);
        }
    }
    return output;
}

/// merge (RFC 3986, section 5.2.3).
std::string mergedPath(const URLParts& base, std::string_view path) {
    if (base.authority && base.path.empty()) {
        return "/" + std::string(path);
    }
    const auto slash = base.path.rfind('/');
    return std::string(base.path.substr(0, slash == std::string_view::npos ? 0 : slash + 1)) +
           std::string(path);
}

/// Transform References (RFC 3986, section 5.2.2), strict.
std::string resolved(const URLParts& reference, const URLParts& base) {
    URLParts target = reference;
    std::string path;  // target.path points into it
    if (reference.scheme || reference.authority) {
        path = withoutDotSegments(reference.path);
    } else {
        target.authority = base.authority;
        if (reference.path.empty()) {
            path = base.path;
            if (!reference.query) {
                target.query = base.query;
            }
        } else if (reference.path.front() == '/') {
            path = withoutDotSegments(reference.path);
        } else {
            path = withoutDotSegments(mergedPath(base, reference.path));
        }
    }
    if (!reference.scheme) {
        target.scheme = base.scheme;
    }
    target.path = path;
    return joinURL(target);
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
    URL url;
    url.text_ = withBracketsEscaped(text);
    const auto parts = splitURL(url.text_);
    if (!parts || text.empty()) {
        return std::nullopt;
    }
    if (parts->scheme) {
        url.scheme_ = std::string(*parts->scheme);
    }
    if (parts->authority) {
        url.host_ = plainHost(hostOfAuthority(*parts->authority));
    }
    url.escapedPath_ = parts->path;
    return url;
}

std::optional<URL> URL::parse(std::string_view text, const URL& base) {
    const auto escapedText = withBracketsEscaped(text);
    const auto reference = splitURL(escapedText);
    const auto baseParts = splitURL(base.text_);
    if (!reference || !baseParts || text.empty()) {
        return std::nullopt;
    }
    return parse(resolved(*reference, *baseParts));
}

URL URL::fileURL(std::string_view path) {
    // After "//" the first segment of a relative path would be parsed as an authority.
    const std::string start = path.starts_with('/') ? "file://" : "file:";
    return parse(start + escapedAsPath(path)).value();
}

std::string URL::path() const {
    auto path = unescaped(escapedPath_);
    if (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string URL::lastPathComponent() const {
    const auto whole = path();
    const auto last = whole.find_last_not_of('/');
    if (last == std::string::npos) {
        return whole.substr(0, 1);
    }
    const auto slash = whole.rfind('/', last);
    const auto begin = slash == std::string::npos ? 0 : slash + 1;
    return whole.substr(begin, last + 1 - begin);
}

}  // namespace glintmark
