#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "favicon/FaviconFetcher.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/support/URLs.h"

namespace glintmark {
namespace {

using namespace std::chrono_literals;
using test::url;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* iconAddress = "http://h/a.png";
constexpr const char* touchIcon = "http://h/apple-touch-icon.png";
constexpr const char* precomposedTouchIcon = "http://h/apple-touch-icon-precomposed.png";

class FaviconFetcherProbesTest : public doubles::PlatformTest {
protected:
    /// The width of the image that `start` completes with. 0 if there is none.
    double width(const std::function<void(FaviconFetcher::ImageCompletion)>& start) {
        double width = 0;
        int completions = 0;
        start([&](const std::shared_ptr<const Image>& image) {
            ++completions;
            width = image ? image->size().width : 0;
        });
        queues().runUntilIdle();
        EXPECT_EQ(completions, 1);
        return width;
    }

    double downloaded() {
        return width([](auto done) {
            FaviconFetcher::downloadImage(FetchContext::make("h"), url(iconAddress),
                                          std::move(done));
        });
    }

    double touched(const std::string& page = "http://h/") {
        return width([&](auto done) {
            FaviconFetcher::fetchAppleTouchIcon(FetchContext::make("h"), url(page),
                                                std::move(done));
        });
    }

    double served(const std::string& host) {
        return width([&](auto done) {
            FaviconFetcher::fetchFromGoogleAPI(FetchContext::make("h"), host, 256, std::move(done));
        });
    }

    double direct(const std::string& page) {
        return width([&](auto done) {
            FaviconFetcher::fetchDirectFavicon(FetchContext::make("h"), url(page), std::move(done));
        });
    }
};

// Image download

TEST_F(FaviconFetcherProbesTest, AnImageIsRequestedAsByABrowser) {
    downloaded();
    ASSERT_EQ(session().requests().size(), 1U);
    const platform::URLRequest& request = session().requests().front();
    EXPECT_EQ(request.url.absoluteString(), iconAddress);
    EXPECT_EQ(request.timeoutInterval, 10s);
    EXPECT_THAT(request.headers,
                ElementsAre(std::pair("User-Agent",
                                      "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) "
                                      "AppleWebKit/605.1.15 (KHTML, like Gecko) Version/17.0 "
                                      "Safari/605.1.15")));
}

TEST_F(FaviconFetcherProbesTest, ABodyOfStatus200IsDecoded) {
    session().answer(iconAddress, 200, "image 16x16 opaque");
    EXPECT_EQ(downloaded(), 16);
}

TEST_F(FaviconFetcherProbesTest, ATransportErrorBesideAGoodAnswerIsIgnored) {
    session().answer(iconAddress, {"image 16x16", platform::URLResponse{200}, "late reset"});
    EXPECT_EQ(downloaded(), 16);
}

TEST_F(FaviconFetcherProbesTest, EveryFailedDownloadGivesNoImage) {
    const std::pair<const char*, platform::URLResult> rows[] = {
        {"failed", {std::nullopt, std::nullopt, "no route"}},
        {"no body", {std::nullopt, platform::URLResponse{200}, std::nullopt}},
        {"empty body", {"", platform::URLResponse{200}, std::nullopt}},
        {"no response", {"image 16x16", std::nullopt, std::nullopt}},
        {"no HTTP", {"image 16x16", platform::URLResponse{std::nullopt}, std::nullopt}},
        {"status 203", {"image 16x16", platform::URLResponse{203}, std::nullopt}},
        {"status 204", {"image 16x16", platform::URLResponse{204}, std::nullopt}},
        {"status 206", {"image 16x16", platform::URLResponse{206}, std::nullopt}},
        {"status 304", {"image 16x16", platform::URLResponse{304}, std::nullopt}},
        {"status 404", {"image 16x16", platform::URLResponse{404}, std::nullopt}},
    };
    for (const auto& [what, result] : rows) {
        session().answer(iconAddress, result);
        EXPECT_EQ(downloaded(), 0) << what;
    }
    EXPECT_EQ(platform().imageDecoder.decodes(), 0);
}

TEST_F(FaviconFetcherProbesTest, AnErrorPageOfStatus200IsNotAnImage) {
    session().answer(iconAddress, 200, "<html>Not found</html>");
    EXPECT_EQ(downloaded(), 0);
}

TEST_F(FaviconFetcherProbesTest, ASilentSiteGivesNoImageAfterTenSeconds) {
    session().staySilent(iconAddress);
    EXPECT_EQ(downloaded(), 0);
    EXPECT_EQ(queues().now(), 10s);
}

// Apple touch icon

TEST_F(FaviconFetcherProbesTest, ATouchIconOf64PointsIsTakenAtOnce) {
    session().answer(touchIcon, 200, "image 64x10");
    EXPECT_EQ(touched(), 64);
    EXPECT_THAT(session().requestedURLs(), ElementsAre(touchIcon));
}

TEST_F(FaviconFetcherProbesTest, ATouchIconUnder64PointsMovesOnToThePrecomposedOne) {
    session().answer(touchIcon, 200, "image 57x200");
    session().answer(precomposedTouchIcon, 200, "image 180x180");
    EXPECT_EQ(touched(), 180);
    EXPECT_THAT(session().requestedURLs(), ElementsAre(touchIcon, precomposedTouchIcon));
}

TEST_F(FaviconFetcherProbesTest, AMissingTouchIconMovesOnToThePrecomposedOne) {
    session().answer(precomposedTouchIcon, 200, "image 180x180");
    EXPECT_EQ(touched(), 180);
}

TEST_F(FaviconFetcherProbesTest, TwoSmallTouchIconsGiveNone) {
    session().answer(touchIcon, 200, "image 57x57");
    session().answer(precomposedTouchIcon, 200, "image 63.9x64");
    EXPECT_EQ(touched(), 0);
}

TEST_F(FaviconFetcherProbesTest, ATouchIconWhoseWidthIsNotANumberIsNotTaken) {
    session().answer(touchIcon, 200, "image nanx64");
    session().answer(precomposedTouchIcon, 200, "image 64x64");
    EXPECT_EQ(touched(), 64);
}

TEST_F(FaviconFetcherProbesTest, TouchIconsAreRequestedAtTheRootWithoutThePort) {
    touched("http://kim@h:8080/dir/page.html?a=b#c");
    EXPECT_THAT(session().requestedURLs(), ElementsAre(touchIcon, precomposedTouchIcon));
}

TEST_F(FaviconFetcherProbesTest, APageWithoutSchemeIsProbedOverHTTPS) {
    touched("//h/page");
    direct("//h/page");
    EXPECT_THAT(session().requestedURLs(),
                ElementsAre("https://h/apple-touch-icon.png",
                            "https://h/apple-touch-icon-precomposed.png", "https://h/favicon.ico"));
}

// Favicon service

TEST_F(FaviconFetcherProbesTest, TheServiceIsAskedForTheHostAsWritten) {
    session().answer("https://icons.example/s2/favicons?domain=WWW.h&sz=256", 200, "image 16x16");
    EXPECT_EQ(served("WWW.h"), 16);
    EXPECT_EQ(session().requests().size(), 1U);
}

TEST_F(FaviconFetcherProbesTest, AHostThatMakesNoServiceURLGivesNoneWithoutARequest) {
    EXPECT_EQ(served("a b"), 0);
    EXPECT_EQ(served("é"), 0);
    EXPECT_THAT(session().requests(), IsEmpty());
}

TEST_F(FaviconFetcherProbesTest, ABaseAddressOfTheServiceMayHaveAPath) {
    platform().configuration.faviconServiceAddress = "http://own.example/icons";
    session().answer("http://own.example/icons/s2/favicons?domain=h&sz=256", 200, "image 16x16");
    EXPECT_EQ(served("h"), 16);
}

TEST_F(FaviconFetcherProbesTest, AServiceThatIsTurnedOffGivesNoneWithoutARequest) {
    platform().configuration.faviconServiceAddress.clear();
    EXPECT_EQ(served("h"), 0);
    EXPECT_THAT(session().requests(), IsEmpty());
}

// Root favicon

TEST_F(FaviconFetcherProbesTest, ASmallRootFaviconIsReturnedUnchanged) {
    session().answer("http://h/favicon.ico", 200, "image 16x16");
    EXPECT_EQ(direct("http://h:8080/dir/page.html"), 16);
    EXPECT_THAT(session().requestedURLs(), ElementsAre("http://h/favicon.ico"));
}

}  // namespace
}  // namespace glintmark
