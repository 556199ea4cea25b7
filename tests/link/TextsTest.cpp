#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "base/plist/PropertyList.h"
#include "link/Texts.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark::link {
namespace {

std::set<std::string> placeholdersIn(const std::string& text) {
    std::set<std::string> found;
    for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
        found.insert(text.substr(at, 2));
    }
    return found;
}

PropertyList::Dictionary table(const std::string& language) {
    for (const auto& file : embeddedTexts()) {
        if (file.name == language + ".lproj/Localizable.strings") {
            const auto list = PropertyList::parse("{" + std::string(file.bytes) + "}");
            return list && list->dictionary() != nullptr ? *list->dictionary()
                                                         : PropertyList::Dictionary{};
        }
    }
    return {};
}

TEST(TextsTest, EveryLanguageHasEveryTextWithItsPlaceholders) {
    const auto english = table("en");
    EXPECT_GT(english.size(), 50U);
    for (const std::string language : {"de", "es", "fr", "it", "ja", "ko", "pt", "ru", "zh-Hans"}) {
        const auto other = table(language);
        EXPECT_EQ(other.size(), english.size()) << language;
        for (const auto& [key, value] : english) {
            ASSERT_TRUE(other.contains(key)) << language << " " << key;
            const std::string& text = *other.at(key).string();
            EXPECT_FALSE(text.empty()) << language << " " << key;
            EXPECT_EQ(placeholdersIn(text), placeholdersIn(*value.string()))
                << language << " " << key;
        }
    }
}

class TextTest : public doubles::PlatformTest {};

TEST_F(TextTest, ValuesReplaceTheirPlaceholders) {
    platform().bundle.texts = {{"k", "%2 of %1, 100 % and %3 %"}};
    EXPECT_EQ(text("k", {"a", "%1"}), "%1 of a, 100 % and %3 %");
    EXPECT_EQ(text("missing"), "missing");
}

TEST_F(TextTest, ATerminalSeesNoControlCharacters) {
    EXPECT_EQ(printable("a\n\x1B[2J\x7F\u0085\u202E\u2028z"), "a??[2J????z");
    EXPECT_EQ(printable("\xFF\xC3\xA9"), "\uFFFD\u00E9");
}

}  // namespace
}  // namespace glintmark::link
