#include "linux/network/HTTPCacheFields.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <clocale>
#include <cstdint>
#include <ctime>

#include "base/text/TextCase.h"

namespace glintmark::platform {

namespace {

using std::chrono::seconds;

/// RFC 9111, section 1.2.2: longer times count as this one.
constexpr seconds maximumSeconds{std::int64_t{1} << 31};

constexpr int partialContent = 206;
constexpr int notModified = 304;

bool isTokenCharacter(char c) {  // RFC 9110, section 5.6.2
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

/// Reads a header field's value from front to back.
class FieldReader {
public:
    explicit FieldReader(std::string_view text) : left_(text) {}

    bool atEnd() const { return left_.empty(); }
    bool isNext(char c) const { return left_.starts_with(c); }

    bool take(char c) {
        const bool isHere = isNext(c);
        left_.remove_prefix(isHere ? 1 : 0);
        return isHere;
    }

    void skip(std::string_view characters) {
        left_.remove_prefix(std::min(left_.find_first_not_of(characters), left_.size()));
    }

    /// Absent if there is none.
    std::optional<std::string> token() {
        const auto end = std::ranges::find_if_not(left_, isTokenCharacter);
        const std::string found(left_.begin(), end);
        left_.remove_prefix(found.size());
        return found.empty() ? std::nullopt : std::optional(found);
    }

    /// The text between quotes (RFC 9110, section 5.6.4). Absent if they are not closed.
    std::optional<std::string> quotedString() {
        std::string text;
        take('"');
        while (!atEnd() && !isNext('"')) {
            take('\\');
            if (!atEnd()) {
                text += left_.front();
                left_.remove_prefix(1);
            }
        }
        return take('"') ? std::optional(text) : std::nullopt;
    }

private:
    std::string_view left_;
};

/// A number of seconds (RFC 9111, section 1.2.2). Absent if the text is not a number without sign.
std::optional<seconds> deltaSeconds(std::string_view text) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
    return parsed.ec == std::errc{} ? std::min(seconds(value), maximumSeconds) : maximumSeconds;
}

/// RFC 9111, section 4.2.1, for a private cache. Zero if the answer is not fresh, also if what it
/// says is not valid. There is no guess (section 4.2.2) for an answer that says nothing.
seconds freshnessLifetime(const std::vector<CacheDirective>& directives,
                          const CacheFields& fields) {
    std::optional<seconds> maximumAge;
    for (const CacheDirective& directive : directives) {
        if (directive.name == "max-age") {
            const auto value = deltaSeconds(directive.argument.value_or(""));
            if (!value) {
                return seconds(0);
            }
            maximumAge = maximumAge ? maximumAge : value;  // the first counts
        }
    }
    if (maximumAge) {
        return *maximumAge;
    }
    const auto expires = httpDate(fields.expires);
    const auto date = expires ? httpDate(fields.date) : std::nullopt;
    return date ? std::min<seconds>(*expires - *date, maximumSeconds) : seconds(0);
}

/// RFC 9111, section 5.1: the first of several; zero if it is not valid.
seconds ageOnArrival(const CacheFields& fields) {
    FieldReader reader(fields.age);
    reader.skip(" \t");
    return deltaSeconds(reader.token().value_or("")).value_or(seconds(0));
}

/// True if a directive forbids that other requests use the answer without asking the server. Those
/// with a list of fields count as those without (RFC 9111, sections 5.2.2.4 and 5.2.2.7). A private
/// answer is for one user; here each link is one.
bool forbidsReuse(const CacheDirective& directive) {
    return directive.name == "no-store" || directive.name == "no-cache" ||
           directive.name == "private";
}

/// RFC 9111, section 4.1: then no other request matches. What else Vary names is equal in requests
/// with equal header fields.
bool variesByAnything(const CacheFields& fields) {
    return fields.vary.find('*') != std::string::npos;
}

}  // namespace

std::optional<std::vector<CacheDirective>> cacheDirectives(std::string_view list) {
    std::vector<CacheDirective> directives;
    FieldReader reader(list);
    for (reader.skip(" \t,"); !reader.atEnd(); reader.skip(" \t,")) {
        auto name = reader.token();
        if (!name) {
            return std::nullopt;
        }
        std::optional<std::string> argument;
        if (reader.take('=')) {
            argument = reader.isNext('"') ? reader.quotedString() : reader.token();
            if (!argument) {
                return std::nullopt;
            }
        }
        reader.skip(" \t");
        if (!reader.atEnd() && !reader.isNext(',')) {
            return std::nullopt;
        }
        directives.push_back({lowercasedASCII(std::move(*name)), std::move(argument)});
    }
    return directives;
}

std::optional<std::chrono::sys_seconds> httpDate(const std::string& text) {
    static constexpr std::array forms{"%a, %d %b %Y %H:%M:%S GMT", "%A, %d-%b-%y %H:%M:%S GMT",
                                      "%a %b %e %H:%M:%S %Y"};
    static const locale_t english = ::newlocale(LC_ALL_MASK, "C", nullptr);
    if (text.empty()) {
        return std::nullopt;  // as for most answers
    }
    for (const char* const form : forms) {
        std::tm parts{};
        const char* const end = ::strptime_l(text.c_str(), form, &parts, english);
        if (end != text.c_str() + text.size()) {
            continue;
        }
        const int day = parts.tm_mday;
        const seconds time(::timegm(&parts));
        return parts.tm_mday == day ? std::optional(std::chrono::sys_seconds(time)) : std::nullopt;
    }
    return std::nullopt;
}

std::optional<seconds> freshnessOfAnswer(int status, const CacheFields& fields) {
    // Section 3: these two need more than this cache can do.
    if (status < 200 || status == partialContent || status == notModified) {
        return std::nullopt;
    }
    const auto directives = cacheDirectives(fields.cacheControl);
    if (!directives || std::ranges::any_of(*directives, forbidsReuse) || variesByAnything(fields)) {
        return std::nullopt;
    }
    // Section 4.2.3, by the Age field: the clocks of client and server may differ.
    const seconds left = freshnessLifetime(*directives, fields) - ageOnArrival(fields);
    return left > seconds(0) ? std::optional(left) : std::nullopt;
}

}  // namespace glintmark::platform
