#include <unicode/locid.h>
#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "favicon/FaviconFetcher.h"
#include "favicon/IconAddress.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using icu::UnicodeString;

namespace {

/// The pieces of a page. Each byte of the input selects one.
constexpr std::array pieces{
    "<link",     "<LINK ",      "<lin\u212A ", " ",          "\n",
    "\t\t",      "\u00A0",      "\u0085",      "rel",        "REL",
    "href",      "sizes",       "\u017Fizes",  "=",          " = ",
    "\"",        "'",           "icon",        "shortcut",   "apple-touch-icon",
    "\u0130con", "precomposed", "a.png",       ".svg",       "/i?v",
    "//h/",      "https://h",   "16",          "\u0663",     "x",
    "X",         ">",           "/>",          "<",          "l",
    "k",         "-",           "\u65E5",      "\U0001F600", "9223372036854775808",
};

std::string pageOf(const std::uint8_t* data, std::size_t size) {
    std::string page;
    for (std::size_t i = 0; i < size; ++i) {
        page += pieces.at(data[i] % pieces.size());
    }
    return page;
}

/// The first match's group, or the whole match for 0, from the plain engine.
std::optional<UnicodeString> found(const char* pattern, const UnicodeString& text, int group) {
    UErrorCode status = U_ZERO_ERROR;
    icu::RegexMatcher matcher(UnicodeString::fromUTF8(pattern), text, UREGEX_CASE_INSENSITIVE,
                              status);
    if (!matcher.find(status) || U_FAILURE(status)) {
        return std::nullopt;
    }
    return matcher.group(group, status);
}

std::string utf8(const UnicodeString& text) {
    std::string result;
    return text.toUTF8String(result);
}

/// The reference: the rules one after the other, each pattern over the whole text.
std::vector<IconEntry> plainlyExtracted(const std::string& page, const URL& base) {
    std::vector<IconEntry> entries;
    const auto text = UnicodeString::fromUTF8(page);
    UErrorCode status = U_ZERO_ERROR;
    icu::RegexMatcher tags(UnicodeString::fromUTF8(R"(<link\s+[^>]*>)"), text,
                           UREGEX_CASE_INSENSITIVE | UREGEX_DOTALL, status);
    while (tags.find(status)) {
        const auto tag = tags.group(status);
        const bool isTouch = found(R"(rel\s*=\s*["']apple-touch-icon)", tag, 0).has_value();
        if (!isTouch && !found(R"(rel\s*=\s*["'](?:shortcut\s+)?icon["'])", tag, 0)) {
            continue;
        }
        const auto href = found(R"(href\s*=\s*["']([^"']+)["'])", tag, 1);
        if (!href || UnicodeString(*href).toLower(icu::Locale::getRoot()).endsWith(".svg")) {
            continue;
        }
        auto url = FaviconFetcher::resolveURL(utf8(*href), base);
        if (!url) {
            continue;
        }
        std::int64_t size = isTouch ? 180 : 32;
        if (const auto width = found(R"(sizes\s*=\s*["']([\d]+)x[\d]+["'])", tag, 1)) {
            size = decimalInteger(utf8(*width)).value_or(size);
        }
        entries.push_back({std::move(*url), size, isTouch});
    }
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return a.isAppleTouchIcon != b.isAppleTouchIcon ? !a.isAppleTouchIcon : a.size > b.size;
    });
    return entries;
}

}  // namespace

/// Rule: the fast extraction finds the same icons as the plain patterns.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto base = URL::parse("http://h:81/dir/page").value();
    const auto page = pageOf(data, size);
    const auto entries = FaviconFetcher::extractIconURLs(page, base);
    const auto wanted = plainlyExtracted(page, base);
    fuzz::require(entries.size() == wanted.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        fuzz::require(entries[i].url == wanted[i].url && entries[i].size == wanted[i].size &&
                      entries[i].isAppleTouchIcon == wanted[i].isAppleTouchIcon);
    }
    return 0;
}
