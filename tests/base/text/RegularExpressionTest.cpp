#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "base/text/RegularExpression.h"
#include "tests/support/Repeated.h"

namespace glintmark {
namespace {

using test::repeated;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr RegularExpression::Options plain;
constexpr RegularExpression::Options anyCaseAnyLine = {.caseInsensitive = true,
                                                       .dotMatchesLineSeparators = true};

RegularExpression compiled(std::string_view pattern,
                           RegularExpression::Options options = anyCaseAnyLine) {
    return RegularExpression::compile(pattern, options).value();
}

/// The first match in `text`, the first in what is left, and so on.
std::vector<std::string> textsOf(const RegularExpression& expression, std::string_view text) {
    std::vector<std::string> texts;
    while (const auto match = expression.firstMatch(text)) {
        texts.emplace_back(match->front().in(text));
        text.remove_prefix(match->front().end);
    }
    return texts;
}

TEST(RegularExpressionTest, TheFirstMatchIsTheLeftmost) {
    const auto tags = compiled(R"(<link\s+[^>]*>)");
    EXPECT_THAT(textsOf(tags, "<p><link a><LINK\n\tb\n><link><linkc><link d"),
                ElementsAre("<link a>", "<LINK\n\tb\n>"));
    EXPECT_THAT(textsOf(tags, ""), IsEmpty());
    EXPECT_THAT(textsOf(tags, {}), IsEmpty());
}

TEST(RegularExpressionTest, PositionsAreBytesAfterAnyCharacters) {
    const std::string text = "\xC3\xA9\xE6\x97\xA5\xF0\x9F\x98\x80<x \xC3\xA9>\xF0\x9F\x98\x80<x >";
    EXPECT_THAT(compiled("<x ([^>]*)>").firstMatch(text).value(),
                ElementsAre(TextRange{9, 15}, TextRange{12, 14}));
}

TEST(RegularExpressionTest, NothingMatchesInIllFormedText) {
    for (const auto* text : {"<x >\xFF", "\x80<x >", "<x \xE6\x97>", "<x >\xED\xA0\x80"}) {
        EXPECT_FALSE(compiled("<x [^>]*>").firstMatch(text));
    }
}

TEST(RegularExpressionTest, FirstMatchGivesTheGroups) {
    const auto sizes = compiled(R"(sizes\s*=\s*["']([\d]+)x[\d]+["'])");
    const std::string text = "<link sizes = '32X16' sizes='1x1'>";
    const auto match = sizes.firstMatch(text).value();
    ASSERT_EQ(match.size(), 2U);
    EXPECT_EQ(match[0].in(text), "sizes = '32X16'");
    EXPECT_EQ(match[1].in(text), "32");
    EXPECT_FALSE(sizes.firstMatch("sizes='any'"));
}

TEST(RegularExpressionTest, AGroupThatTookNoPartIsEmpty) {
    EXPECT_THAT(compiled("x(a)?(b)").firstMatch("xb").value(),
                ElementsAre(TextRange{0, 2}, TextRange{0, 0}, TextRange{1, 2}));
}

TEST(RegularExpressionTest, DigitsAndBlanksAreThoseOfAllScripts) {
    EXPECT_THAT(textsOf(compiled(R"(\d+)"), "a\xEF\xBC\x91\xEF\xBC\x92"),
                ElementsAre("\xEF\xBC\x91\xEF\xBC\x92"));
    EXPECT_THAT(textsOf(compiled(R"(\s+)"), "a\xE3\x80\x80"), ElementsAre("\xE3\x80\x80"));
    EXPECT_THAT(textsOf(compiled(R"(\s+)"), "a\x0B\u0085\u2028"), ElementsAre("\x0B\u0085\u2028"));
    EXPECT_THAT(textsOf(compiled(R"(\s)"), "\u180E\u200B\uFEFF"), IsEmpty());
}

TEST(RegularExpressionTest, LetterCaseIsThatOfUnicode) {
    EXPECT_THAT(textsOf(compiled("ks"), "\u212A\u017F KS"), ElementsAre("\u212A\u017F", "KS"));
    EXPECT_THAT(textsOf(compiled("i"), "\u0130\u0131I"), ElementsAre("I"));
    EXPECT_THAT(textsOf(compiled("\u00E9"), "\u00C9"), ElementsAre("\u00C9"));
}

TEST(RegularExpressionTest, OptionsChangeWhatMatches) {
    EXPECT_THAT(textsOf(compiled("a.b", plain), "A-b a\nb a-b"), ElementsAre("a-b"));
    EXPECT_THAT(textsOf(compiled("a.b", {.caseInsensitive = true}), "A-b a\nb"),
                ElementsAre("A-b"));
    EXPECT_THAT(textsOf(compiled("a.b", {.dotMatchesLineSeparators = true}), "A-b a\nb"),
                ElementsAre("a\nb"));
}

TEST(RegularExpressionTest, AMatchMayBeEmpty) {
    EXPECT_THAT(compiled("x*").firstMatch("axxb").value(), ElementsAre(TextRange{0, 0}));
}

TEST(RegularExpressionTest, ABadPatternDoesNotCompile) {
    for (const auto* pattern : {"(", "[a", "a{2,1}", "*", "\\", "(?<=a*)b", "\xFF("}) {
        EXPECT_FALSE(RegularExpression::compile(pattern, plain)) << pattern;
    }
}

TEST(RegularExpressionTest, GivesUpOnATextThatGrowsBeyondItsBudget) {
    const auto expression = compiled("(x+x+)+y");
    const std::string text(5000, 'x');
    EXPECT_FALSE(expression.firstMatch(text));
    EXPECT_TRUE(expression.firstMatch("xxy")) << "the next text is searched as usual";
}

TEST(RegularExpressionTest, GivesUpOnATextThatNeedsTooMuchMemory) {
    const auto expression = compiled("(?:a|b)+c");
    std::string text(2'000'000, 'a');
    text += 'c';
    EXPECT_FALSE(expression.firstMatch(text));
}

TEST(RegularExpressionTest, RunsOfAnyLengthOfASetMatch) {
    const std::string blanks(3'000'000, ' ');
    const std::string digits(3'000'000, '7');
    EXPECT_TRUE(compiled(R"(<link\s+[^>]*>)").firstMatch("<link" + blanks + ">"));
    EXPECT_TRUE(compiled(R"(rel\s*=)").firstMatch("rel" + blanks + "="));
    EXPECT_TRUE(compiled(R"((?:shortcut\s+)?icon")").firstMatch("shortcut" + blanks + "icon\""));
    EXPECT_TRUE(compiled(R"(\d+x[\d]+y)").firstMatch(digits + "x" + digits + "y"));
    EXPECT_TRUE(compiled(R"(<\w+ \S+>)").firstMatch("<" + digits + " " + digits + ">"));
}

TEST(RegularExpressionTest, SetsMeanTheSameInsideAndOutsideBrackets) {
    EXPECT_THAT(textsOf(compiled(R"(\\s\s[^\s\]]\])"), R"(\s a] \s b\s ]])"),
                ElementsAre(R"(\s a])"));
    EXPECT_THAT(textsOf(compiled(R"(\S+)"), "\u180E\u00E9\u00A0-"),
                ElementsAre("\u180E\u00E9", "-"));
}

TEST(RegularExpressionTest, SearchesLongTexts) {
    std::string text = repeated("<p rel='icon' href='\xC3\xA9.png'>\n", 30'000);
    const std::size_t begin = text.size();
    text += "<link a>";
    EXPECT_THAT(compiled(R"(<link\s+[^>]*>)").firstMatch(text).value(),
                ElementsAre(TextRange{begin, text.size()}));
}

TEST(RegularExpressionTest, SeveralThreadsSearchAtOnce) {
    const auto expression = compiled("b(c)");
    constexpr int count = 4;
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (int number = 0; number < count; ++number) {
        threads.emplace_back([copy = expression, number] {
            const auto before = static_cast<std::size_t>(number);
            const auto text = std::string(before, 'a') + "bc";
            for (int i = 0; i < 1000; ++i) {
                EXPECT_THAT(
                    copy.firstMatch(text).value(),
                    ElementsAre(TextRange{before, before + 2}, TextRange{before + 1, before + 2}));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

}  // namespace
}  // namespace glintmark
