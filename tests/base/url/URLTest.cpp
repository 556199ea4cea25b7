#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "base/url/URL.h"
#include "tests/Vectors.h"

namespace glintmark {
namespace {

using namespace std::string_literals;

TEST(URLTest, AgreesWithTheParsingCases) {
    for (const auto& testCase : test::loadVectors("url_parse")) {
        SCOPED_TRACE(testCase.label());
        const auto url = URL::parse(*testCase.text("text"));
        if (!testCase.firm) {
            continue;
        }
        ASSERT_EQ(url.has_value(), testCase.boolean("parses"));
        if (url) {
            EXPECT_EQ(url->absoluteString(), testCase.text("text"));
            EXPECT_EQ(url->scheme(), testCase.text("scheme"));
            EXPECT_EQ(url->host(), testCase.text("host"));
        }
    }
}

struct Parsing {
    std::string text;
    bool parses;
};

TEST(URLTest, FollowsTheGrammarOfEachComponent) {
    const Parsing table[] = {
        {"x+-.1:", true},
        {"1x:a", false},       // a scheme begins with a letter
        {":a", false},         // and is not empty
        {"a/b:c", true},       // a colon after the first segment
        {"//", true},          // an empty authority
        {"//@", true},         // an empty user before an empty host
        {"//u:p:q@h:", true},  // an empty port
        {"//h:1:2", false},    // one port only
        {"//u@v@h", false},    // one user only
        {"//u[@h", false},     // brackets only around an address
        {"//h]", false},
        {"//[::1", false},
        {"//[::1]x", false},
        {"//[1:2:3:4:5:6:7:8]", true},
        {"//[1:2:3:4:5:6:7:8:9]", false},
        {"//[1::2::3]", false},
        {"//[::192.0.2.1]:80", true},
        {"//[::192.0.2.256]", false},
        {"//[12345::]", false},
        {"//[::1\0]"s, false},
        {"//[0000:0000:0000:0000:0000:0000:192.0.2.1000000]", false},
        {"//[vF.a:b]", true},
        {"//[v.a]", false},
        {"//[vF.]", false},
        {"//[vG.a]", false},
        {"/a\0b"s, false},
        {"/%", false},
        {"/%4", false},
        {"/%4g", false},
        {"/%g4", false},
        {"/%aF", true},
        {"?a/b?c", true},
        {"#a/b?c", true},
        {"#a#b", false},
        {"a[:", false},  // brackets in no scheme
        {"\xFF", false},
    };
    for (const auto& [text, parses] : table) {
        EXPECT_EQ(URL::parse(text).has_value(), parses) << text;
    }
}

TEST(URLTest, BracketsAfterTheAuthorityAreEscaped) {
    const std::pair<std::string_view, std::string_view> table[] = {
        {"http://h/a[1].png?b[]=2#[c]", "http://h/a%5B1%5D.png?b%5B%5D=2#%5Bc%5D"},
        {"http://[::1]:80/[?", "http://[::1]:80/%5B?"},
        {"http://h?[", "http://h?%5B"},
        {"http://h#]", "http://h#%5D"},
        {"//h/]", "//h/%5D"},
        {"//h]/", ""},
        {"a[1].png", "a%5B1%5D.png"},
        {"/[", "/%5B"},
        {"?[]", "?%5B%5D"},
        {"x:[", "x:%5B"},
        {"[x]:", ""},
        {"/%5b[", "/%5b%5B"},
        {"/%[41", ""},
    };
    for (const auto& [text, expected] : table) {
        const auto url = URL::parse(text);
        EXPECT_EQ(url ? url->absoluteString() : "", expected) << text;
    }
    EXPECT_EQ(URL::parse("http://h/a[1]")->path(), "/a[1]");
}

TEST(URLTest, HostLosesItsBracketsAndEscapes) {
    EXPECT_EQ(URL::parse("http://[::1]:8080/")->host(), "::1");
    EXPECT_EQ(URL::parse("http://u@a%2Eb%00/")->host(), "a.b\0"s);
    EXPECT_EQ(URL::parse("http://Host")->host(), "Host");
    EXPECT_EQ(URL::parse("http://:80/")->host(), std::nullopt);
    EXPECT_EQ(URL::parse("http:/x")->host(), std::nullopt);
}

struct Resolution {
    std::string_view base;
    std::string_view text;
    std::optional<std::string> url;
};

TEST(URLTest, ResolvesReferencesAgainstABase) {
    const Resolution table[] = {
        {"http://h:8080/dir/page.html", "img/i.png", "http://h:8080/dir/img/i.png"},
        {"http://h:8080/dir/page.html", "../i.png", "http://h:8080/i.png"},
        {"http://h:8080/dir/page.html", "?v=2", "http://h:8080/dir/page.html?v=2"},
        {"http://h:8080/dir/page.html", "data:,x", "data:,x"},
        {"http://h:8080/dir/page[1].html", "a[2].png?b[]",
         "http://h:8080/dir/a%5B2%5D.png?b%5B%5D"},
        {"http://h:8080/dir/page[1].html", "#a", "http://h:8080/dir/page%5B1%5D.html#a"},
        {"http://h:8080/dir/page.html", "//g/x/../i.png", "http://g/i.png"},
        {"http://h:8080/dir/page.html", "/x/./i.png", "http://h:8080/x/i.png"},
        {"http://h:8080/dir/page.html", "HTTPS://g/./i.png", "HTTPS://g/i.png"},
        {"http://h:8080/dir/page.html?q#f", "#g", "http://h:8080/dir/page.html?q#g"},
        {"http://h", "?v=2", "http://h?v=2"},
        {"http://h", "i.png", "http://h/i.png"},
        {"http://h", "..", "http://h/"},
        {"http://h/", "../../i.png", "http://h/i.png"},
        {"http://h/a/..", "i.png", "http://h/a/i.png"},
        {"http://h/a/b", "../..", "http://h/"},
        {"http://h/a/b/c", ".././d/..", "http://h/a/"},
        {"http://h/a/b/c", "..//d", "http://h/a//d"},
        {"http://h/a", "%zz", std::nullopt},
        {"http://h/a", "", std::nullopt},
        {"http://h/a", " i.png", std::nullopt},
        // Without an authority
        {"x:a/b", "c", "x:a/c"},
        {"x:a", "../c", "x:c"},
        {"x:/a", "..//b", "x:/.//b"},  // still a path and no authority
        {"x:", ".", "x:"},
        // Without a scheme
        {"//h/a/b", "c", "//h/a/c"},
        {"www.h/a", "c", "www.h/c"},
        {"a", "./c:d", "./c:d"},  // still a path and no scheme
    };
    for (const auto& [base, text, expected] : table) {
        SCOPED_TRACE(std::string(base) + " " + std::string(text));
        const auto url = URL::parse(text, *URL::parse(base));
        EXPECT_EQ(url ? std::optional(url->absoluteString()) : std::nullopt, expected);
    }
}

TEST(URLTest, ReadsAndResolvesVeryLongTexts) {
    constexpr std::size_t count = 1'000'000;
    const auto base = *URL::parse("http://h/");
    for (const std::string_view piece : {"/", "a", ",", "%41", "../", "./", "a/", "@", "?"}) {
        SCOPED_TRACE(piece);
        std::string text = "x";
        while (text.size() < count) {
            text += piece;
        }
        const auto url = URL::parse(text, base);
        ASSERT_TRUE(url);
        EXPECT_EQ(url->host(), "h");
        EXPECT_TRUE(URL::parse("http://h/" + text));
    }
}

TEST(URLTest, FileURLReturnsThePathByteForByte) {
    std::string everyByte = "/";
    for (int byte = 1; byte < 256; ++byte) {
        everyByte += static_cast<char>(byte);
    }
    for (const auto& path : {"/home/kim/a b.webloc"s, "/100%/\xC3\xA9?#;"s, everyByte, "/"s, "//a"s,
                             "relative/a:b"s}) {
        EXPECT_EQ(URL::fileURL(path).path(), path);
        EXPECT_EQ(URL::fileURL(path).scheme(), "file");
        EXPECT_EQ(URL::fileURL(path).host(), std::nullopt);
    }
    EXPECT_EQ(URL::fileURL("/a b%").absoluteString(), "file:///a%20b%25");
}

TEST(URLTest, PathIsUnescapedAndWithoutItsTrailingSlash) {
    EXPECT_EQ(URL::parse("http://h/a%20b/c/")->path(), "/a b/c");
    EXPECT_EQ(URL::parse("http://h/%c3%A9")->path(), "/\xC3\xA9");
    EXPECT_EQ(URL::parse("http://h/a?b#c")->path(), "/a");
    EXPECT_EQ(URL::parse("http://h/")->path(), "/");
    EXPECT_EQ(URL::parse("http://h")->path(), "");
}

TEST(URLTest, LastPathComponentIsTheLastSegment) {
    EXPECT_EQ(URL::parse("file:///home/kim/a%20b.webloc")->lastPathComponent(), "a b.webloc");
    EXPECT_EQ(URL::parse("http://h/a/b/")->lastPathComponent(), "b");
    EXPECT_EQ(URL::parse("http://h/a//")->lastPathComponent(), "a");
    EXPECT_EQ(URL::parse("a")->lastPathComponent(), "a");
    EXPECT_EQ(URL::parse("http://h/")->lastPathComponent(), "/");
    EXPECT_EQ(URL::parse("http://h///")->lastPathComponent(), "/");
    EXPECT_EQ(URL::parse("http://h")->lastPathComponent(), "");
}

TEST(URLTest, EqualityIsThatOfTheText) {
    EXPECT_EQ(*URL::parse("http://h/"), *URL::parse("http://h/"));
    EXPECT_FALSE(*URL::parse("http://h/") == *URL::parse("HTTP://h/"));
}

}  // namespace
}  // namespace glintmark
