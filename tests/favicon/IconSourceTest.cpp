#include <gtest/gtest.h>

#include <array>

#include "favicon/IconSource.h"

namespace glintmark {
namespace {

struct Row {
    IconSource source;
    std::string_view rawValue;
    std::string_view caseName;
};

constexpr std::array<Row, 6> rows{{
    {IconSource::htmlIcon, "HTML icon", "htmlIcon"},
    {IconSource::htmlAppleTouchIcon, "HTML apple-touch-icon", "htmlAppleTouchIcon"},
    {IconSource::appleTouchIcon, "apple-touch-icon直接", "appleTouchIcon"},
    {IconSource::manifest, "manifest.json", "manifest"},
    {IconSource::googleAPI, "Google API", "googleAPI"},
    {IconSource::faviconICO, "favicon.ico", "faviconICO"},
}};

TEST(IconSourceTest, EverySourceHasItsLabelAndItsCaseName) {
    for (const Row& row : rows) {
        EXPECT_EQ(rawValue(row.source), row.rawValue);
        EXPECT_EQ(caseName(row.source), row.caseName);
    }
}

TEST(IconSourceTest, ALabelGivesItsSource) {
    for (const Row& row : rows) {
        EXPECT_EQ(iconSourceFromRawValue(row.rawValue), row.source);
    }
}

TEST(IconSourceTest, AnyOtherTextGivesNoSource) {
    for (const auto* text : {"", "googleAPI", "html icon", "HTML icon ", "apple-touch-icon"}) {
        EXPECT_EQ(iconSourceFromRawValue(text), std::nullopt) << text;
    }
}

TEST(IconSourceDeathTest, AnUnknownValueEndsTheProcess) {
    EXPECT_DEATH(rawValue(static_cast<IconSource>(6)), "An icon source of no known value");
}

}  // namespace
}  // namespace glintmark
