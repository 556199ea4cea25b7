#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "link/PageTitle.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark::link {
namespace {

using testing::Optional;

TEST(PageTitleTest, TheTitleIsTheFirstTitleElement) {
    struct Case {
        std::string page;
        std::optional<std::string> title;
    };
    const std::vector<Case> cases{
        {"<title>A page</title>", "A page"},
        {"<html><head><TITLE lang='en'>\n  A\t page \n</Title>", "A page"},
        {"<title>A</title><svg><title>B</title></svg>", "A"},
        {"<!-- <title>A</title> --><title>B</title>", "B"},
        {"<titles>A</titles><title>B</title>", "B"},
        {"<title>A &amp; B &lt;b&gt;</title>", "A & B <b>"},
        {"\xEF\xBB\xBF<title>\xC3\xA9</title>", "\xC3\xA9"},
        {"<meta charset=\"shift_jis\"><title>\x83\x8A\x83\x93\x83N</title>", "リンク"},
        {"<meta http-equiv=Content-Type content='text/html; "
         "charset=ISO-8859-1'><title>\xE9</title>",
         "\xC3\xA9"},
        {"<title>\xE9</title>", std::nullopt},
        {"<title></title>", std::nullopt},
        {"<title> \n </title>", std::nullopt},
        {"<title>A", std::nullopt},
        {"<title", std::nullopt},
        {"<!-- <title>A</title>", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(titleInPage(test.page), test.title) << test.page;
    }
}

TEST(PageTitleTest, HostilePagesTakeLinearTime) {
    std::string page;
    for (int i = 0; i < 300'000; ++i) {
        page += "<!--><title";
    }
    EXPECT_EQ(titleInPage(page), std::nullopt);
    EXPECT_EQ(titleInPage(std::string(3'000'000, '<') + "<title>A</title>"), "A");
}

TEST(PageTitleTest, ReferencesAreResolved) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"a&nbsp;b",
         "a\xC2\xA0"
         "b"},
        {"&Eacute;&yuml;", "Éÿ"},
        {"&mdash;&hellip;", "—…"},
        {"&alpha;&Omega;&sigma;", "αΩσ"},
        {"&#39;&#x27;&#X2764;", "''❤"},
        {"&#151;", "—"},
        {"&#0;&#xD800;&#x110000;", "\uFFFD\uFFFD\uFFFD"},
        {"&#9999999999;", "\uFFFD"},
        {"&unknown; & &; &# &#; &#x; &#-1;", "&unknown; & &; &# &#; &#x; &#-1;"},
        {"&amp;lt;", "&lt;"},
        {"AT&T", "AT&T"},
        {"&amp", "&amp"}};
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(withoutReferences(text), expected) << text;
    }
}

TEST(PageTitleTest, ATitleBecomesAFileName) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"A page", "A page"},
        {"../../etc/passwd", "-..-etc-passwd"},
        {"...hidden", "hidden"},
        {" . a . ", "a ."},
        {"a\tb\nc\x01\x7F", "a b c"},
        {"a\u202Eb\u2066c\u200Fd", "abcd"},
        {"a\u2028b\u0085c", "a bc"},
        {std::string("a\0b", 3), "a"},
        {"ひらがな", "ひらがな"},
        {"👨\u200D👩", "👨\u200D👩"},
        {"\xFF", ""},
        {"...", ""},
        {"", ""},
    };
    for (const auto& [title, name] : cases) {
        EXPECT_EQ(fileNameFrom(title, 255), name) << title;
    }
}

TEST(PageTitleTest, ALongTitleIsCutBetweenCharacters) {
    EXPECT_EQ(fileNameFrom("ああああ", 10), "あああ");
    EXPECT_EQ(fileNameFrom("abcdef ghi", 7), "abcdef");
    EXPECT_EQ(fileNameFrom(std::string(1000, 'a'), 255).size(), 255U);
}

class FetchTitleTest : public doubles::PlatformTest {
protected:
    std::optional<std::string> titleOf(const std::string& url) {
        std::optional<std::string> found;
        int calls = 0;
        fetchTitle(URL::parse(url).value(), [&](std::optional<std::string> title) {
            found = std::move(title);
            ++calls;
        });
        queues().runUntilIdle();
        EXPECT_EQ(calls, 1);
        return found;
    }
};

TEST_F(FetchTitleTest, OnlyASuccessHasATitle) {
    session().answer("http://h/ok", 200, "<title>A</title>");
    session().answer("http://h/error", 404, "<title>Not found</title>");
    session().fail("http://h/fails", "no route");
    EXPECT_THAT(titleOf("http://h/ok"), Optional(std::string("A")));
    EXPECT_EQ(titleOf("http://h/error"), std::nullopt);
    EXPECT_EQ(titleOf("http://h/fails"), std::nullopt);
}

}  // namespace
}  // namespace glintmark::link
