#include "favicon/IconSource.h"

#include <algorithm>
#include <array>

#include "base/system/FatalError.h"

namespace glintmark {

namespace {

struct Names {
    IconSource source;
    std::string_view rawValue;
    std::string_view caseName;
};

constexpr std::array<Names, 6> allNames{{
    {IconSource::htmlIcon, "HTML icon", "htmlIcon"},
    {IconSource::htmlAppleTouchIcon, "HTML apple-touch-icon", "htmlAppleTouchIcon"},
    {IconSource::appleTouchIcon, "apple-touch-icon直接", "appleTouchIcon"},
    {IconSource::manifest, "manifest.json", "manifest"},
    {IconSource::googleAPI, "Google API", "googleAPI"},
    {IconSource::faviconICO, "favicon.ico", "faviconICO"},
}};

const Names& namesOf(IconSource source) {
    const auto* const found = std::ranges::find(allNames, source, &Names::source);
    if (found == allNames.end()) {
        fatalError("An icon source of no known value");
    }
    return *found;
}

}  // namespace

std::string_view rawValue(IconSource source) { return namesOf(source).rawValue; }

std::string_view caseName(IconSource source) { return namesOf(source).caseName; }

std::optional<IconSource> iconSourceFromRawValue(std::string_view rawValue) {
    const auto* const found = std::ranges::find(allNames, rawValue, &Names::rawValue);
    if (found == allNames.end()) {
        return std::nullopt;
    }
    return found->source;
}

}  // namespace glintmark
