#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "base/url/URLComponents.h"
#include "tests/Vectors.h"

namespace glintmark {
namespace {

std::optional<std::string> built(std::optional<std::string> scheme, std::optional<std::string> host,
                                 std::string path) {
    const URLComponents components{std::move(scheme), std::move(host), std::move(path)};
    const auto url = components.url();
    return url ? std::optional(url->absoluteString()) : std::nullopt;
}

TEST(URLComponentsTest, AgreesWithTheBuildingCases) {
    for (const auto& testCase : test::loadVectors("url_components")) {
        SCOPED_TRACE(testCase.label());
        const auto url =
            built(testCase.text("scheme"), testCase.text("host"), *testCase.text("path"));
        if (testCase.firm) {
            EXPECT_EQ(url, testCase.text("url"));
        }
    }
}

TEST(URLComponentsTest, AnIPv6AddressGetsItsBracketsBack) {
    EXPECT_EQ(built("http", "::1", "/i.png"), "http://[::1]/i.png");
    EXPECT_EQ(built("http", "[::1]", "/i.png"), "http://[::1]/i.png");
    EXPECT_EQ(built("http", "v1.x", "/i.png"), "http://v1.x/i.png");
}

TEST(URLComponentsTest, AHostIsEscapedAsARegisteredName) {
    EXPECT_EQ(built("http", "a b@c:d/e?f#g[", "/"), "http://a%20b%40c%3Ad%2Fe%3Ff%23g%5B/");
    EXPECT_EQ(built("http", "\xC3\xA9", "/"), "http://%C3%A9/");
}

TEST(URLComponentsTest, PartsThatFormNoURLGiveNone) {
    EXPECT_EQ(built("1x", "h", "/"), std::nullopt);
    EXPECT_EQ(built("", "h", "/"), std::nullopt);
    EXPECT_EQ(built("a b", "h", "/"), std::nullopt);
    EXPECT_EQ(built("http", "h", "x"), std::nullopt);
    EXPECT_EQ(built("http", std::nullopt, "//x"), std::nullopt);
    EXPECT_EQ(built(std::nullopt, std::nullopt, ""), std::nullopt);
}

TEST(URLComponentsTest, MissingPartsAreLeftOut) {
    EXPECT_EQ(built(std::nullopt, "h", "/x"), "//h/x");
    EXPECT_EQ(built("http", "h", ""), "http://h");
    EXPECT_EQ(built("http", std::nullopt, "/x"), "http:/x");
    EXPECT_EQ(built(std::nullopt, std::nullopt, "a:b"), "./a:b");
}

}  // namespace
}  // namespace glintmark
