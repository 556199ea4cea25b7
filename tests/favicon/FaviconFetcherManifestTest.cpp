#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "favicon/FaviconFetcher.h"
#include "tests/Vectors.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/support/URLs.h"

namespace glintmark {
namespace {

using namespace std::chrono_literals;
using test::url;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* pageAddress = "http://h:8080/dir/page.html";
constexpr const char* firstAddress = "http://h/manifest.json";
constexpr const char* secondAddress = "http://h/site.webmanifest";
constexpr const char* thirdAddress = "http://h/manifest.webmanifest";

/// The address and the size of the chosen icon. Empty if there is none.
std::string chosen(std::string_view json) {
    const auto icon = FaviconFetcher::chooseManifestIcon(json, url(pageAddress));
    return icon ? icon->url.absoluteString() + " " + std::to_string(icon->size) : "";
}

std::string chosenOf(const std::string& icons) { return chosen("{\"icons\": [" + icons + "]}"); }

// Choosing

void expectChoicesOf(const std::string& vectors) {
    const auto cases = test::loadVectors(vectors);
    if (cases.empty()) {
        GTEST_SKIP() << "no cases from real sites here";
    }
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.label());
        const auto page = URL::parse(*testCase.text("pageURL"));
        ASSERT_TRUE(page);
        const auto json = testCase.has("manifest") ? *testCase.text("manifest")
                                                   : testCase.bytes("manifest_base64");
        const auto icon = FaviconFetcher::chooseManifestIcon(json, *page);
        if (!testCase.firm) {
            continue;
        }
        const auto wanted = testCase.object("chosen");
        ASSERT_EQ(icon.has_value(), wanted.has_value());
        if (wanted) {
            EXPECT_EQ(icon->url.absoluteString(), *wanted->text("url"));
            EXPECT_EQ(icon->size, wanted->integer("size"));
        }
    }
}

TEST(FaviconFetcherManifestTest, AgreesWithTheChoiceCases) { expectChoicesOf("manifest_choose"); }

TEST(FaviconFetcherManifestTest, AgreesWithTheChoiceCasesFromRealSites) {
    expectChoicesOf("manifest_choose_real");
}

TEST(FaviconFetcherManifestTest, TheSizeIsTheFirstWidth) {
    const std::pair<const char*, const char*> rows[] = {
        {R"("192x192")", "192"}, {R"("16x16 32x32")", "16"},
        {R"("any")", "64"},      {R"("512X512")", "64"},
        {R"("x48")", "48"},      {R"("xx48xx")", "48"},
        {R"(" 48x48")", "64"},   {R"("48 x48")", "64"},
        {R"("")", "64"},         {R"("x")", "64"},
        {R"("-5x5")", "-5"},     {R"("+5x5")", "5"},
        {R"("0x0")", "0"},       {"48", "64"},
        {"null", "64"},          {R"(["48x48"])", "64"},
        {R"("48")", "48"},       {R"("9223372036854775808x1")", "64"},
    };
    for (const auto& [sizes, size] : rows) {
        EXPECT_EQ(chosenOf(std::string(R"({"src": "a", "sizes": )") + sizes + "}"),
                  std::string("http://h:8080/dir/a ") + size)
            << sizes;
    }
}

TEST(FaviconFetcherManifestTest, TheLargestIconWinsAndTheFirstOfEquals) {
    EXPECT_EQ(chosenOf(R"({"src": "a", "sizes": "192x192"}, {"src": "b", "sizes": "512x512"})"),
              "http://h:8080/dir/b 512");
    EXPECT_EQ(chosenOf(R"({"src": "a", "sizes": "512x512"}, {"src": "b", "sizes": "512x512"})"),
              "http://h:8080/dir/a 512");
}

TEST(FaviconFetcherManifestTest, AnIconWithoutSizesCountsAs64) {
    EXPECT_EQ(chosenOf(R"({"src": "a", "sizes": "48x48"}, {"src": "b"})"),
              "http://h:8080/dir/b 64");
    EXPECT_EQ(chosenOf(R"({"src": "b"}, {"src": "a", "sizes": "72x72"})"),
              "http://h:8080/dir/a 72");
}

TEST(FaviconFetcherManifestTest, UnusableIconsAreSkipped) {
    for (const auto* icon : {
             R"({})", R"({"src": 5})", R"({"src": ""})", R"({"src": "a b"})", R"({"src": "a.svg"})",
             R"({"src": "a.SVG"})", R"({"src": "a", "type": "image/svg+xml"})",
             R"({"src": "a", "purpose": "maskable"})", R"({"src": "a", "purpose": "MASKABLE"})",
             R"({"src": "a", "purpose": "monochrome maskable"})",
             "{\"src\": \"a\", \"purpose\": \"mas\u212Aable\"}",  // the Kelvin sign for k
         }) {
        EXPECT_EQ(chosenOf(icon), "") << icon;
        EXPECT_EQ(chosenOf(std::string(icon) + R"(, {"src": "b", "sizes": "1x1"})"),
                  "http://h:8080/dir/b 1")
            << icon;
    }
}

TEST(FaviconFetcherManifestTest, OddButUsableIconsAreKept) {
    for (const auto* icon : {
             R"({"src": "a", "type": "image/SVG+xml"})",
             R"({"src": "a", "type": 5})",
             R"({"src": "a", "purpose": "any maskable"})",
             R"({"src": "a", "purpose": "maskable ANY"})",
             R"({"src": "a", "purpose": "monochrome"})",
             R"({"src": "a", "purpose": "maskablemany"})",
             R"({"src": "a", "purpose": ["maskable"]})",
         }) {
        EXPECT_EQ(chosenOf(icon), "http://h:8080/dir/a 64") << icon;
    }
}

TEST(FaviconFetcherManifestTest, AddressesResolveAgainstThePage) {
    EXPECT_EQ(chosenOf(R"({"src": "icons/a.png"})"), "http://h:8080/dir/icons/a.png 64");
    EXPECT_EQ(chosenOf(R"({"src": "/a.png?v=1"})"), "http://h/a.png%3Fv=1 64");
}

TEST(FaviconFetcherManifestTest, AnUnusableManifestGivesNone) {
    for (const auto* json : {
             "",
             "<html>",
             "[]",
             R"("text")",
             "null",
             "{}",
             R"({"icons": {}})",
             R"({"icons": "a"})",
             R"({"icons": []})",
             R"({"icons": [null]})",
             R"({"icons": [{"src": "a"}, "b"]})",
             R"({"icons": [[{"src": "a"}]]})",
             R"({"Icons": [{"src": "a"}]})",
             R"({"icons": [{"src": "a"}],})",
         }) {
        EXPECT_EQ(chosen(json), "") << json;
    }
}

// Probing

class FaviconFetcherManifestFetchTest : public doubles::PlatformTest {
protected:
    std::shared_ptr<const Image> fetched(const std::string& address = pageAddress) {
        std::shared_ptr<const Image> result;
        int completions = 0;
        FaviconFetcher::fetchFromManifest(FetchContext::make("h"), url(address), [&](auto image) {
            ++completions;
            result = std::move(image);
        });
        queues().runUntilIdle();
        EXPECT_EQ(completions, 1);
        return result;
    }

    void answerWithIcon(const std::string& address, const std::string& icon) {
        session().answer(address, 200, "{\"icons\": [{\"src\": \"" + icon + "\"}]}");
    }
};

TEST_F(FaviconFetcherManifestFetchTest, AManifestIsRequestedUnderTheClientsOwnName) {
    session().staySilentEverywhere();
    fetched();
    ASSERT_EQ(session().requests().size(), 3U);
    for (const platform::URLRequest& request : session().requests()) {
        EXPECT_EQ(request.timeoutInterval, 5s);
        EXPECT_THAT(request.headers, IsEmpty());
    }
    EXPECT_EQ(queues().now(), 15s) << "one address after the other";
}

TEST_F(FaviconFetcherManifestFetchTest, TheAddressesAreAtTheRootWithoutPortAndPath) {
    EXPECT_EQ(fetched(), nullptr);
    EXPECT_THAT(session().requestedURLs(), ElementsAre(firstAddress, secondAddress, thirdAddress));
}

TEST_F(FaviconFetcherManifestFetchTest, APageWithoutSchemeIsProbedOverHTTPS) {
    fetched("//h:8080/dir/page.html");
    EXPECT_EQ(session().requestedURLs().front(), "https://h/manifest.json");
}

TEST_F(FaviconFetcherManifestFetchTest, TheFirstManifestWithAUsableIconEndsTheSearch) {
    answerWithIcon(secondAddress, "a");
    session().answer("http://h:8080/dir/a", 200, "image 96x96");
    const auto image = fetched();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size().width, 96);
    EXPECT_THAT(session().requestedURLs(),
                ElementsAre(firstAddress, secondAddress, "http://h:8080/dir/a"));
}

TEST_F(FaviconFetcherManifestFetchTest, TheIconIsRequestedAsByABrowser) {
    answerWithIcon(firstAddress, "a");
    fetched();
    const platform::URLRequest& request = session().requests().back();
    EXPECT_EQ(request.url.absoluteString(), "http://h:8080/dir/a");
    EXPECT_EQ(request.headers.size(), 1U);
    EXPECT_EQ(request.timeoutInterval, 10s);
}

TEST_F(FaviconFetcherManifestFetchTest, AnyFailureMovesOnToTheNextAddress) {
    const std::string manifest = R"({"icons": [{"src": "first"}]})";
    const std::pair<const char*, platform::URLResult> rows[] = {
        {"failed", {std::nullopt, std::nullopt, "no route"}},
        {"no body", {std::nullopt, platform::URLResponse{200}, std::nullopt}},
        {"no response", {manifest, std::nullopt, std::nullopt}},
        {"no HTTP", {manifest, platform::URLResponse{std::nullopt}, std::nullopt}},
        {"another status", {manifest, platform::URLResponse{203}, std::nullopt}},
        {"no JSON", {"<html>", platform::URLResponse{200}, std::nullopt}},
        {"no object", {"[]", platform::URLResponse{200}, std::nullopt}},
        {"no icons", {"{}", platform::URLResponse{200}, std::nullopt}},
        {"SVG only", {R"({"icons": [{"src": "a.svg"}]})", platform::URLResponse{200}, {}}},
        {"maskable only",
         {R"({"icons": [{"src": "a", "purpose": "maskable"}]})", platform::URLResponse{200}, {}}},
    };
    answerWithIcon(secondAddress, "second");
    session().answer("http://h:8080/dir/second", 200, "image 96x96");
    for (const auto& [what, result] : rows) {
        session().answer(firstAddress, result);
        EXPECT_TRUE(fetched()) << what;
    }
    EXPECT_EQ(session().requestCount("http://h:8080/dir/first"), 0U);
    EXPECT_EQ(session().requestCount(thirdAddress), 0U);
}

TEST_F(FaviconFetcherManifestFetchTest, ATransportErrorBesideAGoodAnswerIsIgnored) {
    session().answer(firstAddress,
                     {R"({"icons": [{"src": "a"}]})", platform::URLResponse{200}, "late reset"});
    session().answer("http://h:8080/dir/a", 200, "image 96x96");
    EXPECT_TRUE(fetched());
}

TEST_F(FaviconFetcherManifestFetchTest, AChosenIconThatFailsGivesNone) {
    session().answer(firstAddress, 200,
                     R"({"icons": [{"src": "a", "sizes": "9x9"}, {"src": "b"}]})");
    session().answer("http://h:8080/dir/a", 200, "image 9x9");
    answerWithIcon(secondAddress, "a");
    EXPECT_EQ(fetched(), nullptr);
    EXPECT_THAT(session().requestedURLs(), ElementsAre(firstAddress, "http://h:8080/dir/b"));
}

}  // namespace
}  // namespace glintmark
