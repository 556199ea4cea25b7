#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <set>
#include <tuple>

#include "favicon/FaviconFetcher.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/favicon/Pictures.h"

namespace glintmark {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

// Selection

IconCandidate candidate(double width, bool transparent, IconSource source) {
    return candidateOfSize({width, width}, transparent, source);
}

double widthOfBest(const std::vector<IconCandidate>& candidates) {
    const auto best = FaviconFetcher::pickBest(candidates);
    return best ? best->image->size().width : -1;
}

TEST(FaviconFetcherTest, AnEmptyListHasNoBest) { EXPECT_FALSE(FaviconFetcher::pickBest({})); }

TEST(FaviconFetcherTest, TheHighestScoreIsBest) {
    EXPECT_EQ(widthOfBest({candidate(64, false, IconSource::htmlIcon),
                           candidate(256, false, IconSource::googleAPI),
                           candidate(180, false, IconSource::htmlAppleTouchIcon)}),
              256);
}

TEST(FaviconFetcherTest, Only48PointsPassTheFirstSelection) {
    const auto narrow = candidate(47, true, IconSource::htmlIcon);
    const auto wide = candidate(48, false, IconSource::faviconICO);
    EXPECT_GT(narrow.score(), wide.score());
    EXPECT_EQ(widthOfBest({narrow, wide}), 48);
    EXPECT_EQ(widthOfBest({wide, narrow}), 48);
}

TEST(FaviconFetcherTest, TheFirstSelectionLooksOnlyAtTheWidth) {
    EXPECT_EQ(widthOfBest({candidateOfSize({16, 512}, true, IconSource::htmlIcon),
                           candidateOfSize({48, 1}, false, IconSource::htmlIcon)}),
              48);
}

TEST(FaviconFetcherTest, AmongSmallImagesTheScoreDecidesAndNotTheWidth) {
    EXPECT_EQ(widthOfBest({candidate(32, false, IconSource::faviconICO),
                           candidate(16, true, IconSource::faviconICO),
                           candidate(47, false, IconSource::faviconICO)}),
              16);
}

TEST(FaviconFetcherTest, OfEqualScoresTheEarliestIsBest) {
    const auto first = candidate(512, true, IconSource::manifest);
    const auto second = candidate(1024, true, IconSource::manifest);
    EXPECT_EQ(widthOfBest({first, second}), 512);
    EXPECT_EQ(widthOfBest({second, first}), 1024);
    EXPECT_EQ(widthOfBest({candidate(16, false, IconSource::manifest), first, second}), 512);
}

TEST(FaviconFetcherTest, AWidthThatIsNotANumberDoesNotPass) {
    EXPECT_EQ(widthOfBest(
                  {candidate(std::numeric_limits<double>::quiet_NaN(), true, IconSource::htmlIcon),
                   candidate(48, false, IconSource::faviconICO)}),
              48);
}

TEST(FaviconFetcherDeathTest, OnlyWidthsThatAreNotNumbersEndTheProcess) {
    const auto nan =
        candidate(std::numeric_limits<double>::quiet_NaN(), true, IconSource::htmlIcon);
    EXPECT_DEATH(FaviconFetcher::pickBest({nan, nan}), "infinite or NaN");
}

// The whole fetch

class FaviconFetcherFetchTest : public doubles::PlatformTest {
protected:
    struct Outcome {
        int completions = 0;
        double width = 0;  ///< 0 for no image.
        std::string queue;
    };

    /// Starts a fetch. Its outcome appears in the result.
    std::shared_ptr<const Outcome> started(const std::string& link) {
        auto outcome = std::make_shared<Outcome>();
        FaviconFetcher::fetch(link, [this, outcome](const std::shared_ptr<const Image>& image) {
            ++outcome->completions;
            outcome->width = image ? image->size().width : 0;
            outcome->queue = queues().current();
        });
        return outcome;
    }

    double fetched(const std::string& link) {
        const auto outcome = started(link);
        queues().runUntilIdle();
        EXPECT_EQ(outcome->completions, 1);
        return outcome->width;
    }

    /// Checks that exactly these were requested: the fixed addresses of the five paths at `root`
    /// (scheme and host), and `others`.
    void expectRequests(const std::string& page, const std::string& root, const std::string& host,
                        std::vector<std::string> others) {
        others.insert(
            others.end(),
            {page, root + "/apple-touch-icon.png", root + "/apple-touch-icon-precomposed.png",
             root + "/manifest.json", root + "/site.webmanifest", root + "/manifest.webmanifest",
             "https://icons.example/s2/favicons?domain=" + host + "&sz=256",
             root + "/favicon.ico"});
        EXPECT_THAT(session().requestedURLs(), UnorderedElementsAreArray(others));
    }

    /// Requested addresses that contain `part`, in order.
    std::vector<std::string> requested(std::string_view part) {
        std::vector<std::string> found;
        for (const std::string& address : session().requestedURLs()) {
            if (address.find(part) != std::string::npos) {
                found.push_back(address);
            }
        }
        return found;
    }
};

TEST_F(FaviconFetcherFetchTest, ATextWithoutAHostCompletesWithoutAnImageAtOnce) {
    for (const auto* link : {"", "site.example", "site.example/path", "/path", "mailto:kim@h",
                             "https:///path", "https://a b/", " https://h/", "https://h/\n", "é"}) {
        const auto outcome = started(link);
        EXPECT_EQ(outcome->completions, 1) << link;
        EXPECT_EQ(outcome->width, 0) << link;
        EXPECT_EQ(outcome->queue, "") << "before fetch returns";
    }
    queues().runUntilIdle();
    EXPECT_THAT(session().requests(), IsEmpty());
    EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(FaviconFetcherFetchTest, AllFivePathsStartAtOnceInTheirOrder) {
    started("http://kim@h:8080/dir/page.html?a=b");
    EXPECT_THAT(
        session().requestedURLs(),
        ElementsAre("http://kim@h:8080/dir/page.html?a=b", "http://h/apple-touch-icon.png",
                    "http://h/manifest.json", "https://icons.example/s2/favicons?domain=h&sz=256",
                    "http://h/favicon.ico"));
    queues().runUntilIdle();
}

TEST_F(FaviconFetcherFetchTest, OnlyManifestsAreRequestedWithoutTheBrowsersName) {
    fetched("http://h/");
    for (const platform::URLRequest& request : session().requests()) {
        const bool isManifest = request.url.absoluteString().find("manifest") != std::string::npos;
        EXPECT_EQ(request.headers.size(), isManifest ? 0U : 1U);
        EXPECT_EQ(request.timeoutInterval, isManifest ? 5s : 10s);
    }
    EXPECT_EQ(session().requests().size(), 8U);
}

TEST_F(FaviconFetcherFetchTest, OnlyWhatAnAnswerNamedIsMarkedWithItsSpace) {
    const auto from = [](std::string body, platform::AddressSpace space) {
        return platform::URLResult{std::move(body), platform::URLResponse{200}, std::nullopt,
                                   space};
    };
    session().answer("http://h/", from(R"(<link rel="icon" href="/named.png">)",
                                       platform::AddressSpace::everyone));
    session().answer("http://h/manifest.json",
                     from(R"({"icons": [{"src": "/other.png"}]})", platform::AddressSpace::local));
    FaviconFetcher::fetch("http://h/", [](const std::shared_ptr<const Image>&) {});
    queues().runUntilIdle();
    std::map<std::string, platform::AddressSpace> named;
    std::set<std::shared_ptr<platform::URLTaskGroup>> groups;
    for (const auto& request : session().requests()) {
        groups.insert(request.group);
        if (request.namedFrom) {
            named[request.url.absoluteString()] = *request.namedFrom;
        }
    }
    EXPECT_THAT(named,
                ElementsAre(std::pair("http://h/named.png", platform::AddressSpace::everyone),
                            std::pair("http://h/other.png", platform::AddressSpace::local)));
    EXPECT_EQ(groups.size(), 1U);
    EXPECT_EQ(groups.count(nullptr), 0U);
    EXPECT_THAT(session().groupHosts(), ElementsAre("h"));
}

TEST_F(FaviconFetcherFetchTest, NoPathWaitsForAnother) {
    session().staySilentEverywhere();
    session().answer("http://h/", 200, "<link rel='icon' href='a'>", 4s);
    session().answer("http://h/manifest.json", 200, R"({"icons": [{"src": "m"}]})", 1s);
    session().answer("http://h/m", 200, "image 96x96", 1s);
    started("http://h/");
    queues().advance(1s);
    EXPECT_THAT(requested("/m"), ElementsAre("http://h/manifest.json", "http://h/m"));
    EXPECT_EQ(session().requestCount("http://h/a"), 0U);
    queues().advance(3s);
    EXPECT_EQ(session().requestCount("http://h/a"), 1U);
    queues().runUntilIdle();
}

TEST_F(FaviconFetcherFetchTest, TheBestOfAllPathsIsChosenAndLogged) {
    session().answer("http://h/", 200,
                     "<link rel='icon' href='i'><link rel='apple-touch-icon' href='t'>");
    session().answer("http://h/i", 200, "image 32x32 transparent");
    session().answer("http://h/t", 200, "image 180x181 opaque");
    session().answer("http://h/favicon.ico", 200, "image 16x16 opaque");
    EXPECT_EQ(fetched("http://h/"), 180);
    EXPECT_THAT(log().lines(),
                ElementsAre("Glintmark: 採用 → htmlAppleTouchIcon (180x181, 透明: false)"));
}

TEST_F(FaviconFetcherFetchTest, EverySingleImagePathGivesItsSource) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"http://h/apple-touch-icon.png", "image 100x90 opaque",
         "Glintmark: 採用 → appleTouchIcon (100x90, 透明: false)"},
        {"http://h/apple-touch-icon-precomposed.png", "image 101x90 transparent",
         "Glintmark: 採用 → appleTouchIcon (101x90, 透明: true)"},
        {"http://h/m", "image 102.7x90.2", "Glintmark: 採用 → manifest (102x90, 透明: false)"},
        {"https://icons.example/s2/favicons?domain=h&sz=256", "image 103x90 transparent",
         "Glintmark: 採用 → googleAPI (103x90, 透明: true)"},
        {"http://h/favicon.ico", "image 104x90 opaque",
         "Glintmark: 採用 → faviconICO (104x90, 透明: false)"},
    };
    session().answer("http://h/site.webmanifest", 200, R"({"icons": [{"src": "m"}]})");
    for (const auto& [address, image, line] : rows) {
        log().forget();
        session().answer(address, 200, image);
        EXPECT_GE(fetched("http://h/"), 100);
        EXPECT_THAT(log().lines(), ElementsAre(line));
        session().answer(address, 404, "");
    }
}

TEST_F(FaviconFetcherFetchTest, AHeightThatIsNotANumberEndsTheProcessWhenItIsLogged) {
    session().answer("http://h/favicon.ico", 200, "image 64xnan");
    EXPECT_DEATH(fetched("http://h/"), "infinite or NaN");
}

TEST_F(FaviconFetcherFetchTest, TheCompletionRunsOnTheGlobalQueue) {
    const auto outcome = started("http://h/");
    EXPECT_EQ(outcome->completions, 0);
    queues().runUntilIdle();
    EXPECT_EQ(outcome->queue, "global");
}

TEST_F(FaviconFetcherFetchTest, ASiteWithoutIconsGivesNoImageAndLogsNothing) {
    EXPECT_EQ(fetched("http://h/"), 0);
    EXPECT_THAT(log().lines(), IsEmpty());
    expectRequests("http://h/", "http://h", "h", {});
}

TEST_F(FaviconFetcherFetchTest, ASilentSiteCompletesOnceAfterTheSlowestPath) {
    session().staySilentEverywhere();
    const auto outcome = started("http://h/");
    queues().advance(20s - 1ns);
    EXPECT_EQ(outcome->completions, 0);
    queues().advance(1ns);  // Two touch icons at 10 s each; three manifests take 15 s.
    EXPECT_EQ(outcome->completions, 1);
    EXPECT_EQ(outcome->width, 0);
}

TEST_F(FaviconFetcherFetchTest, NoPathIsGivenUpWhenAnotherHasALargeImage) {
    session().answer("http://h/favicon.ico", 200, "image 512x512 transparent");
    session().answer("http://h/apple-touch-icon.png", 200, "image 64x64", 9s);
    const auto outcome = started("http://h/");
    queues().advance(8s);
    EXPECT_EQ(outcome->completions, 0);
    queues().advance(1s);
    EXPECT_EQ(outcome->width, 512);
}

TEST_F(FaviconFetcherFetchTest, OfTwoSmallImagesTheServiceGoesBeforeTheRootFavicon) {
    session().answer("http://h/favicon.ico", 200, "image 16x16 opaque");
    session().answer("https://icons.example/s2/favicons?domain=h&sz=256", 200, "image 16x16 opaque",
                     1s);
    EXPECT_EQ(fetched("http://h/"), 16);
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: 採用 → googleAPI (16x16, 透明: false)"));
}

TEST_F(FaviconFetcherFetchTest, OfEqualScoresTheFirstToArriveIsChosen) {
    session().answer("http://h/", 200, "<link rel='icon' href='a'><link rel='icon' href='b'>");
    session().answer("http://h/a", 200, "image 512x512", 2s);
    session().answer("http://h/b", 200, "image 600x600", 1s);
    EXPECT_EQ(fetched("http://h/"), 600);
}

TEST_F(FaviconFetcherFetchTest, TwoFetchesOfOneLinkAtOnceAreIndependent) {
    session().answer("http://h/favicon.ico", 200, "image 48x48 opaque", 1s);
    const auto first = started("http://h/");
    session().answer("http://h/favicon.ico", 200, "image 64x64 opaque");
    const auto second = started("http://h/");
    queues().runUntilIdle();
    EXPECT_EQ(first->completions, 1);
    EXPECT_EQ(first->width, 48);
    EXPECT_EQ(second->completions, 1);
    EXPECT_EQ(second->width, 64);
    EXPECT_EQ(session().requests().size(), 16U);
}

TEST_F(FaviconFetcherFetchTest, APathMayCompleteBeforeItReturns) {
    platform().configuration.faviconServiceAddress.clear();
    session().answer("http://h/favicon.ico", 200, "image 16x16 opaque");
    EXPECT_EQ(fetched("http://h/"), 16);
    EXPECT_EQ(session().requests().size(), 7U);
}

// The requests of one fetch, rule by rule

TEST_F(FaviconFetcherFetchTest, RootPathsDropThePort) {
    session().answer("http://h:8080/dir/page.html", 200,
                     "<link rel='icon' href='/r.png'><link rel='icon' href='s.png'>");
    fetched("http://h:8080/dir/page.html");
    expectRequests("http://h:8080/dir/page.html", "http://h", "h",
                   {"http://h/r.png", "http://h:8080/dir/s.png"});
}

TEST_F(FaviconFetcherFetchTest, AQueryInARootPathIsEscaped) {
    session().answer("https://h/", 200, "<link rel='icon' href='/i.png?v=2'>");
    fetched("https://h/");
    expectRequests("https://h/", "https://h", "h", {"https://h/i.png%3Fv=2"});
}

TEST_F(FaviconFetcherFetchTest, SchemeRelativeLinksAreForcedToHTTPS) {
    session().answer("http://h/", 200, "<link rel='icon' href='//cdn.h:81/i.png?v=2'>");
    fetched("http://h/");
    expectRequests("http://h/", "http://h", "h", {"https://cdn.h:81/i.png?v=2"});
}

TEST_F(FaviconFetcherFetchTest, SixIconsAreDownloadedPlainOnesFirst) {
    session().answer("http://h/", 200,
                     "<link rel='apple-touch-icon' href='t1' sizes='180x180'>"
                     "<link rel='icon' href='i1' sizes='16x16'><link rel='icon' href='i2'>"
                     "<link rel='icon' href='i3'><link rel='icon' href='i4'>"
                     "<link rel='apple-touch-icon' href='t2' sizes='512x512'>"
                     "<link rel='icon' href='i5' sizes='96x96'>");
    fetched("http://h/");
    expectRequests(
        "http://h/", "http://h", "h",
        {"http://h/i5", "http://h/i2", "http://h/i3", "http://h/i4", "http://h/i1", "http://h/t2"});
    EXPECT_THAT(requested("http://h/i"), ElementsAre("http://h/i5", "http://h/i2", "http://h/i3",
                                                     "http://h/i4", "http://h/i1"));
}

TEST_F(FaviconFetcherFetchTest, ATouchIconOf64PointsEndsItsPath) {
    session().answer("http://h/apple-touch-icon.png", 200, "image 64x64");
    fetched("http://h/");
    EXPECT_THAT(requested("apple-touch"), ElementsAre("http://h/apple-touch-icon.png"));
}

TEST_F(FaviconFetcherFetchTest, ATouchIconUnder64PointsIsNoCandidate) {
    session().answer("http://h/apple-touch-icon.png", 200, "image 63x63 transparent");
    EXPECT_EQ(fetched("http://h/"), 0);
    EXPECT_THAT(requested("apple-touch"), ElementsAre("http://h/apple-touch-icon.png",
                                                      "http://h/apple-touch-icon-precomposed.png"));
}

TEST_F(FaviconFetcherFetchTest, AManifestAtTheSecondAddressEndsItsPath) {
    session().answer("http://h:81/a/b", 200, "");
    session().answer("http://h/site.webmanifest", 200,
                     R"({"icons": [{"src": "i", "sizes": "192x192"}, {"src": "/j?k"}]})");
    session().answer("http://h:81/a/i", 200, "image 192x192 opaque");
    EXPECT_EQ(fetched("http://h:81/a/b"), 192);
    EXPECT_THAT(requested("manifest"),
                ElementsAre("http://h/manifest.json", "http://h/site.webmanifest"));
    EXPECT_EQ(session().requestCount("http://h:81/a/i"), 1U);
}

TEST_F(FaviconFetcherFetchTest, ManifestsOfMaskableOrSVGIconsMoveOn) {
    session().answer("http://h/manifest.json", 200,
                     R"({"icons": [{"src": "a.png", "purpose": "maskable"}]})");
    session().answer("http://h/site.webmanifest", 200, R"({"icons": [{"src": "a.svg"}]})");
    fetched("http://h/");
    expectRequests("http://h/", "http://h", "h", {});
}

TEST_F(FaviconFetcherFetchTest, APageOfSVGIconsMakesNoDownload) {
    session().answer("http://h/", 200, "<link rel='icon' href='a.svg'>");
    fetched("http://h/");
    expectRequests("http://h/", "http://h", "h", {});
}

TEST_F(FaviconFetcherFetchTest, AnErrorPagesIconsAreDownloaded) {
    session().answer("http://h/gone", 410, "<link rel='icon' href='/i.png'>");
    session().answer("http://h/i.png", 200, "image 48x48 opaque");
    EXPECT_EQ(fetched("http://h/gone"), 48);
    expectRequests("http://h/gone", "http://h", "h", {"http://h/i.png"});
}

TEST_F(FaviconFetcherFetchTest, ImagesOfStatus203And206AreNoCandidates) {
    session().answer("http://h/", 206, "<link rel='icon' href='a'><link rel='icon' href='b'>");
    session().answer("http://h/a", 203, "image 48x48 opaque");
    session().answer("http://h/b", 206, "image 48x48 opaque");
    EXPECT_EQ(fetched("http://h/"), 0);
    expectRequests("http://h/", "http://h", "h", {"http://h/a", "http://h/b"});
}

TEST_F(FaviconFetcherFetchTest, AfterARedirectTheBaseIsStillTheRequestedAddress) {
    // The session follows redirects itself. The fetcher gets the body of the final address and
    // does not learn that address.
    session().answer("http://h/old/page", 200, "<link rel='icon' href='i'>");
    fetched("http://h/old/page");
    expectRequests("http://h/old/page", "http://h", "h", {"http://h/old/i"});
}

TEST_F(FaviconFetcherFetchTest, AHostInMixedCaseIsRequestedAsWritten) {
    session().answer("HTTP://WWW.Site.Example/P", 200,
                     "<link rel='icon' href='i'><link rel='icon' href='/j'>");
    fetched("HTTP://WWW.Site.Example/P");
    expectRequests("HTTP://WWW.Site.Example/P", "HTTP://WWW.Site.Example", "WWW.Site.Example",
                   {"HTTP://WWW.Site.Example/i", "HTTP://WWW.Site.Example/j"});
}

TEST_F(FaviconFetcherFetchTest, ALinkWithoutSchemeIsProbedOverHTTPS) {
    fetched("//h/page");
    expectRequests("//h/page", "https://h", "h", {});
}

TEST_F(FaviconFetcherFetchTest, AFragmentStaysOnlyInThePagesAddress) {
    fetched("https://h/a?b=c#d");
    expectRequests("https://h/a?b=c#d", "https://h", "h", {});
}

}  // namespace
}  // namespace glintmark
