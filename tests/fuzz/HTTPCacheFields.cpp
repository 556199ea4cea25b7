#include "linux/network/HTTPCacheFields.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string>
#include <string_view>

#include "base/text/TextCase.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using platform::CacheDirective;
using platform::cacheDirectives;
using platform::CacheFields;
using platform::freshnessOfAnswer;
using platform::httpDate;

namespace {

constexpr std::chrono::seconds most{std::int64_t{1} << 31};

/// The next line of `text`, which loses it.
std::string takeLine(std::string_view& text) {
    const std::string line(text.substr(0, text.find('\n')));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

std::string written(const std::vector<CacheDirective>& directives) {
    std::string text;
    for (const CacheDirective& directive : directives) {
        text += (text.empty() ? "" : ", ") + directive.name;
        if (directive.argument) {
            text += "=\"";
            for (const char c : *directive.argument) {
                text += std::string(c == '"' || c == '\\' ? "\\" : "") + c;
            }
            text += '"';
        }
    }
    return text;
}

/// True if a list without quotes has the element `name`, with or without an argument.
bool plainlyHas(std::string_view list, std::string_view name) {
    while (!list.empty()) {
        std::string_view element = list.substr(0, list.find(','));
        list.remove_prefix(std::min(element.size() + 1, list.size()));
        element.remove_prefix(std::min(element.find_first_not_of(" \t"), element.size()));
        element = element.substr(0, element.find_first_of("= \t"));
        if (lowercasedASCII(std::string(element)) == name) {
            return true;
        }
    }
    return false;
}

void checkDate(const std::string& text) {
    const auto date = httpDate(text);
    if (!date) {
        return;
    }
    const std::time_t seconds = date->time_since_epoch().count();
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 64> usual{};
    std::strftime(usual.data(), usual.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
    fuzz::require(httpDate(usual.data()) == date);
}

}  // namespace

/// Rules: a list of directives that is written again reads the same; what forbids reuse is never
/// fresh; a lifetime is positive and limited, and an age makes it no longer; a date is the same in
/// the usual form. The lines of the input are the fields.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view left = fuzz::text(data, size);
    CacheFields fields;
    for (std::string* const field :
         {&fields.cacheControl, &fields.expires, &fields.date, &fields.age, &fields.vary}) {
        *field = takeLine(left);
    }
    checkDate(fields.expires);
    checkDate(fields.date);
    const auto directives = cacheDirectives(fields.cacheControl);
    if (directives) {
        fuzz::require(cacheDirectives(written(*directives)) == directives);
    }

    const auto fresh = freshnessOfAnswer(200, fields);
    fuzz::require(!freshnessOfAnswer(206, fields));
    if (!fresh) {
        return 0;
    }
    fuzz::require(directives && *fresh > std::chrono::seconds(0) && *fresh <= most);
    fuzz::require(fields.vary.find('*') == std::string::npos);
    if (fields.cacheControl.find('"') == std::string::npos) {
        for (const char* const name : {"no-store", "no-cache", "private"}) {
            fuzz::require(!plainlyHas(fields.cacheControl, name));
        }
        const bool hasDates = httpDate(fields.expires) && httpDate(fields.date);
        fuzz::require(plainlyHas(fields.cacheControl, "max-age") || hasDates);
    }
    CacheFields other = fields;
    other.cacheControl += ", no-store";
    fuzz::require(!freshnessOfAnswer(200, other));
    other = fields;
    other.age.clear();
    fuzz::require(freshnessOfAnswer(200, other).value_or(-most) >= *fresh);
    return 0;
}
