#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace glintmark::platform {

/// What the header fields of an answer say about using it again (RFC 9111). Pure functions; any
/// thread.

/// The values of an answer's header fields; empty for a missing one. Several fields of one name are
/// joined with commas (RFC 9110, section 5.3).
struct CacheFields {
    std::string cacheControl{};
    std::string expires{};
    std::string date{};
    std::string age{};
    std::string vary{};
};

/// A directive of Cache-Control (RFC 9111, section 5.2).
struct CacheDirective {
    std::string name;                     ///< In lower case.
    std::optional<std::string> argument;  ///< Without quotes.

    bool operator==(const CacheDirective&) const = default;
};

/// Absent if the list is not well-formed.
std::optional<std::vector<CacheDirective>> cacheDirectives(std::string_view list);

/// A date in one of the three forms of RFC 9110, section 5.6.7. Absent for any other text.
std::optional<std::chrono::sys_seconds> httpDate(const std::string& text);

/// How long after its request an answer with that status is fresh. Positive, and at most 2^31
/// seconds. Absent if other requests may not use the answer at all.
std::optional<std::chrono::seconds> freshnessOfAnswer(int status, const CacheFields& fields);

}  // namespace glintmark::platform
