#include <gtest/gtest.h>

#include "base/text/TextCase.h"

namespace glintmark {
namespace {

TEST(TextCaseTest, LettersBecomeLowerCaseAndTheRestStays) {
    const std::pair<const char*, const char*> rows[] = {
        {"", ""},
        {"MASKABLE any 12", "maskable any 12"},
        {"ÀÉÎ ЖЩ Σ", "àéî жщ σ"},
        {"mas\u212Aable", "maskable"},  // the Kelvin sign
        {"I\u0130", "ii"},              // not by the rules of any one language
        {"ß アイコン", "ß アイコン"},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(lowercased(text), expected);
    }
}

TEST(TextCaseTest, AZeroByteIsACharacterLikeOthers) {
    EXPECT_EQ(lowercased(std::string_view("A\0B", 3)), std::string_view("a\0b", 3));
}

TEST(TextCaseTest, LowercasedASCIIChangesOnlyTheLettersOfASCII) {
    EXPECT_EQ(lowercasedASCII("@AZ[`az{ 09"), "@az[`az{ 09");
    EXPECT_EQ(lowercasedASCII("\xc3\x80\xc1 \u212A"), "\xc3\x80\xc1 \u212A");
    EXPECT_EQ(lowercasedASCII('Q'), 'q');
}

TEST(TextCaseTest, StartsWithIgnoringCaseComparesTheWholePrefix) {
    for (const auto* text : {"<link", "<LiNkx"}) {
        EXPECT_TRUE(startsWithIgnoringCase(text, "<link")) << text;
    }
    for (const auto* text : {"", "<lin", " <link", "<lin\u212A"}) {
        EXPECT_FALSE(startsWithIgnoringCase(text, "<link")) << text;
    }
}

}  // namespace
}  // namespace glintmark
