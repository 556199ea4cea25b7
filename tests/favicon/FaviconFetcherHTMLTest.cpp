#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "favicon/FaviconFetcher.h"
#include "tests/Vectors.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/support/Repeated.h"
#include "tests/support/URLs.h"

namespace glintmark {
namespace {

using namespace std::chrono_literals;
using test::repeated;
using test::url;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

constexpr const char* pageAddress = "http://h:8080/dir/page.html";

/// An entry as text: address, size, and "touch" or "icon". An address below the page's
/// folder is relative to that folder.
std::string described(const IconEntry& entry) {
    constexpr std::string_view folder = "http://h:8080/dir/";
    std::string address = entry.url.absoluteString();
    if (address.starts_with(folder)) {
        address.erase(0, folder.size());
    }
    return address + " " + std::to_string(entry.size) +
           (entry.isAppleTouchIcon ? " touch" : " icon");
}

std::vector<std::string> extracted(std::string_view html) {
    std::vector<std::string> entries;
    for (const IconEntry& entry : FaviconFetcher::extractIconURLs(html, url(pageAddress))) {
        entries.push_back(described(entry));
    }
    return entries;
}

// Link extraction

void expectEntriesOf(const std::string& vectors) {
    const auto cases = test::loadVectors(vectors);
    if (cases.empty()) {
        GTEST_SKIP() << "no cases from real sites here";
    }
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.label());
        const auto base = URL::parse(*testCase.text("baseURL"));
        ASSERT_TRUE(base);
        const auto entries = FaviconFetcher::extractIconURLs(*testCase.text("html"), *base);
        if (!testCase.firm) {
            continue;
        }
        using Row = std::tuple<std::string, std::int64_t, bool>;
        std::vector<Row> found;
        for (const IconEntry& entry : entries) {
            found.emplace_back(entry.url.absoluteString(), entry.size, entry.isAppleTouchIcon);
        }
        std::vector<Row> wanted;
        for (const auto& entry : testCase.list("entries")) {
            wanted.emplace_back(*entry.text("url"), entry.integer("size"),
                                entry.boolean("isAppleTouchIcon"));
        }
        EXPECT_EQ(found, wanted);
    }
}

TEST(FaviconFetcherHTMLTest, AgreesWithTheExtractionCases) { expectEntriesOf("html_extract"); }

TEST(FaviconFetcherHTMLTest, AgreesWithTheExtractionCasesFromRealSites) {
    expectEntriesOf("html_extract_real");
}

TEST(FaviconFetcherHTMLTest, EachTagGivesItsEntry) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"plain icon", R"(<link rel="icon" href="a.png">)", "a.png 32 icon"},
        {"several sizes", R"(<link rel="icon" sizes="16x16 32x32" href="a.png">)", "a.png 32 icon"},
        {"size", R"(<link rel="icon" sizes="48x16" href="a.png">)", "a.png 48 icon"},
        {"size with upper-case X", R"(<link rel="icon" sizes="48X16" href="a.png">)",
         "a.png 48 icon"},
        {"size any", R"(<link rel="icon" sizes="any" href="a.png">)", "a.png 32 icon"},
        {"largest size", R"(<link rel="icon" sizes="9223372036854775807x1" href="a.png">)",
         "a.png 9223372036854775807 icon"},
        {"size too large", R"(<link rel="icon" sizes="9223372036854775808x1" href="a.png">)",
         "a.png 32 icon"},
        {"digits of another script", "<link rel='icon' sizes='٣٢x٣٢' href='a.png'>",
         "a.png 32 icon"},
        {"touch icon", R"(<link rel="apple-touch-icon" href="a.png">)", "a.png 180 touch"},
        {"precomposed touch icon", R"(<link rel="apple-touch-icon-precomposed" href="a.png">)",
         "a.png 180 touch"},
        {"touch icon, size too large",
         R"(<link rel="apple-touch-icon" sizes="99999999999999999999x1" href="a.png">)",
         "a.png 180 touch"},
        {"both kinds", R"(<link rel="icon" rel="apple-touch-icon" href="a.png">)",
         "a.png 180 touch"},
        {"upper case", R"(<LINK REL="SHORTCUT ICON" HREF="A.png">)", "A.png 32 icon"},
        {"single quotes", "<link rel='icon' href='a.png'>", "a.png 32 icon"},
        {"several lines", "<link\n  rel=\"icon\"\r\n\thref=\"a.png\"\n>", "a.png 32 icon"},
        {"svg with a query", R"(<link rel="icon" href="icon.svg?x=1">)", "icon.svg?x=1 32 icon"},
        {"svg by type only", R"(<link rel="icon" type="image/svg+xml" href="a">)", "a 32 icon"},
        {"entity", R"(<link rel="icon" href="a?b=1&amp;c=2">)", "a?b=1&amp;c=2 32 icon"},
        {"Kelvin sign for k", "<lin\u212A rel='icon' href='a.png'>", "a.png 32 icon"},
        {"long s for s", "<link rel='\u017Fhortcut icon' href='a.png' \u017Fize\u017F='5x5'>",
         "a.png 5 icon"},
        {"root-relative", R"(<link rel="icon" href="/a.png?v=2">)", "http://h/a.png%3Fv=2 32 icon"},
        {"after beginnings of none", R"(<<lin<LINKS <link/><li<link rel="icon" href="a.png">)",
         "a.png 32 icon"},
    };
    for (const auto& [what, tag, entry] : rows) {
        EXPECT_THAT(extracted(tag), ElementsAre(entry)) << what;
    }
}

TEST(FaviconFetcherHTMLTest, OtherTagsGiveNone) {
    for (const auto* tag : {
             "<linkrel='icon' href='a.png'>",
             "<link/rel='icon' href='a.png'>",
             "< link rel='icon' href='a.png'>",
             "<link rel='icon' href='a.png'",
             "<link rel='icon'>",
             "<link rel='icon' href=''>",
             "<link rel='icon' href=a.png>",
             "<link rel='icon' href='a.SVG'>",
             "<link rel='icon' href='a b.png'>",
             "<link rel=icon href='a.png'>",
             "<link rel='icon shortcut' href='a.png'>",
             "<link rel='alternate icon' href='a.png'>",
             "<link rel='mask-icon' href='a.png'>",
             "<link rel='fluid-icon' href='a.png'>",
             "<link rel='icon ' href='a.png'>",
             "<link rel='shortcut' href='a.png'>",
             "<link rel='stylesheet' href='a.css'>",
             "<a rel='icon' href='a.png'>",
             "<link rel='icon' data='>' href='a.png'",
             "",
         }) {
        EXPECT_THAT(extracted(tag), IsEmpty()) << tag;
    }
}

TEST(FaviconFetcherHTMLTest, PlainIconsGoBeforeTouchIconsAndLargeBeforeSmall) {
    EXPECT_THAT(extracted("<link rel='apple-touch-icon' sizes='180x180' href='t'>"
                          "<link rel='icon' sizes='32x32' href='s'>"
                          "<link rel='icon' sizes='192x192' href='l'>"),
                ElementsAre("l 192 icon", "s 32 icon", "t 180 touch"));
}

TEST(FaviconFetcherHTMLTest, EqualEntriesKeepTheirOrderAndNoneIsDropped) {
    EXPECT_THAT(extracted("<link rel='icon' href='b'><link rel='apple-touch-icon' href='t'>"
                          "<link rel='icon' href='a'><link rel='icon' href='b'>"),
                ElementsAre("b 32 icon", "a 32 icon", "b 32 icon", "t 180 touch"));
}

TEST(FaviconFetcherHTMLTest, HundredsOfEqualEntriesKeepTheirOrder) {
    // An unstable sort keeps the order of a few entries by chance, but not of this many.
    constexpr int count = 300;
    std::string html;
    std::vector<std::string> wanted;
    for (const auto* kind : {" 64 icon", " 32 icon", " 64 touch", " 32 touch"}) {
        for (int i = 0; i < count; ++i) {
            const std::string own =
                std::string(i % 5 < 2 ? " 64" : " 32") + (i % 3 == 0 ? " touch" : " icon");
            if (own == kind) {
                wanted.push_back(std::to_string(i) + kind);
            }
        }
    }
    for (int i = 0; i < count; ++i) {
        html += std::string("<link rel='") + (i % 3 == 0 ? "apple-touch-icon" : "icon") +
                "' sizes='" + (i % 5 < 2 ? "64x64" : "32x32") + "' href='" + std::to_string(i) +
                "'>";
    }
    EXPECT_EQ(extracted(html), wanted);
}

TEST(FaviconFetcherHTMLTest, ALimitKeepsTheFirstEntriesOfTheWholeOrder) {
    std::string html;
    for (int i = 0; i < 500; ++i) {
        const auto number = std::to_string(i);
        const auto size = std::to_string(i * 7 % 50);
        html += (i % 3 == 0 ? "<link rel='apple-touch-icon' sizes='" : "<link rel='icon' sizes='") +
                size + "x1' href='" + (i % 5 == 0 ? "no URL" : number) + "'>";
    }
    const auto all = FaviconFetcher::extractIconURLs(html, url(pageAddress));
    ASSERT_EQ(all.size(), 400U);
    for (const std::size_t limit : {0U, 1U, 6U, 399U, 400U, 401U}) {
        const auto some = FaviconFetcher::extractIconURLs(html, url(pageAddress), limit);
        ASSERT_EQ(some.size(), std::min<std::size_t>(limit, 400U));
        for (std::size_t i = 0; i < some.size(); ++i) {
            EXPECT_EQ(some[i].url, all[i].url);
        }
    }
}

TEST(FaviconFetcherHTMLTest, RunsOfBlanksOfAnyLengthAreBlanks) {
    const std::string blanks(2'000'000, ' ');
    EXPECT_THAT(extracted("<link" + blanks + "rel" + blanks + "=" + blanks + "'shortcut" + blanks +
                          "icon' href" + blanks + "=" + blanks + "'a.png' sizes" + blanks + "=" +
                          blanks + "'5x5'" + blanks + ">"),
                ElementsAre("a.png 5 icon"));
}

TEST(FaviconFetcherHTMLTest, ValuesOfAnyLengthAreTakenWhole) {
    const std::string path(2'000'000, 'p');
    const std::string zeros(2'000'000, '0');
    EXPECT_THAT(
        extracted("<link rel='icon' href='" + path + "' sizes='" + zeros + "64x" + zeros + "1'>"),
        ElementsAre(path + " 64 icon"));
}

TEST(FaviconFetcherHTMLTest, TagsThatNeverEndTakeNoTime) {
    // Trying each of them up to the end of the text would take minutes.
    EXPECT_THAT(extracted("<link rel='icon' href='a'>" + repeated("<link ", 1'000'000)),
                ElementsAre("a 32 icon"));
}

TEST(FaviconFetcherHTMLTest, OneTagOfManyBeginningsIsOneTag) {
    EXPECT_THAT(extracted(repeated("<link ", 1'000'000) + "rel='icon' href='a'>"),
                ElementsAre("a 32 icon"));
}

// URL resolution

TEST(FaviconFetcherHTMLTest, AgreesWithTheResolutionCases) {
    for (const auto& testCase : test::loadVectors("resolve_url")) {
        SCOPED_TRACE(testCase.label());
        const auto base = URL::parse(*testCase.text("base"));
        ASSERT_TRUE(base);
        const auto resolved = FaviconFetcher::resolveURL(*testCase.text("address"), *base);
        if (testCase.firm) {
            EXPECT_EQ(resolved ? std::optional(resolved->absoluteString()) : std::nullopt,
                      testCase.text("url"));
        }
    }
}

TEST(FaviconFetcherHTMLTest, TheFirstRuleThatAppliesResolvesAnAddress) {
    const std::pair<const char*, const char*> rows[] = {
        {"https://cdn.h/i.png", "https://cdn.h/i.png"},
        {"http://cdn.h:81/i.png", "http://cdn.h:81/i.png"},
        {"https://cdn.h/a/../i.png", "https://cdn.h/a/../i.png"},  // absolute, so not resolved
        {"http://cdn.h/./i.png", "http://cdn.h/./i.png"},
        {"//cdn.h/a/../i.png", "https://cdn.h/a/../i.png"},
        {"//cdn.h/i.png", "https://cdn.h/i.png"},
        {"/img/i.png", "http://h/img/i.png"},
        {"/i.png?v=2", "http://h/i.png%3Fv=2"},
        {"/i.png#x", "http://h/i.png%23x"},
        {"img/i.png", "http://h:8080/dir/img/i.png"},
        {"../i.png", "http://h:8080/i.png"},
        {"../../../i.png", "http://h:8080/i.png"},
        {"?v=2", "http://h:8080/dir/page.html?v=2"},
        {"HTTPS://cdn.h/i.png", "HTTPS://cdn.h/i.png"},
        {"data:image/png;base64,AA==", "data:image/png;base64,AA=="},
    };
    for (const auto& [address, resolved] : rows) {
        const auto result = FaviconFetcher::resolveURL(address, url(pageAddress));
        ASSERT_TRUE(result) << address;
        EXPECT_EQ(result->absoluteString(), resolved);
    }
}

TEST(FaviconFetcherHTMLTest, AnAddressThatIsNotAURLResolvesToNone) {
    for (const auto* address :
         {"", "https://a b/i.png", "//a b/i.png", "i n.png", "%zz", "é.png"}) {
        EXPECT_FALSE(FaviconFetcher::resolveURL(address, url(pageAddress))) << address;
    }
}

TEST(FaviconFetcherHTMLTest, ARootRelativeAddressGetsNeitherPortNorUserOfTheBase) {
    EXPECT_EQ(FaviconFetcher::resolveURL("/i.png", url("http://kim:pw@SITE.example:81/a?b#c"))
                  ->absoluteString(),
              "http://SITE.example/i.png");
}

// The page fetch

class FaviconFetcherHTMLFetchTest : public doubles::PlatformTest {
protected:
    void fetch(const std::string& address = pageAddress) {
        FaviconFetcher::fetchAllFromHTML(FetchContext::make("h"), url(address),
                                         [this](std::vector<IconCandidate> found) {
                                             ++completions_;
                                             queue_ = queues().current();
                                             candidates_ = std::move(found);
                                         });
    }

    void fetchAndWait() {
        fetch();
        queues().runUntilIdle();
        ASSERT_EQ(completions_, 1);
    }

    std::vector<int> widths() const {
        std::vector<int> widths;
        for (const IconCandidate& candidate : candidates_) {
            widths.push_back(static_cast<int>(candidate.image->size().width));
        }
        return widths;
    }

    int completions_ = 0;
    std::string queue_;
    std::vector<IconCandidate> candidates_;
};

TEST_F(FaviconFetcherHTMLFetchTest, ThePageIsRequestedAsByABrowser) {
    fetch();
    ASSERT_EQ(session().requests().size(), 1U);
    const platform::URLRequest& request = session().requests().front();
    EXPECT_EQ(request.url.absoluteString(), pageAddress);
    EXPECT_EQ(request.timeoutInterval, 10s);
    ASSERT_EQ(request.headers.size(), 1U);
    EXPECT_EQ(request.headers.front().first, "User-Agent");
    EXPECT_THAT(request.headers.front().second, StartsWith("Mozilla/5.0 (Macintosh;"));
    EXPECT_EQ(request.headers.front().second.size(), 117U);
    queues().runUntilIdle();
}

TEST_F(FaviconFetcherHTMLFetchTest, EveryImageThatArrivesBecomesACandidate) {
    session().answer(pageAddress, 200,
                     "<link rel='icon' href='a'><link rel='icon' href='none'>"
                     "<link rel='apple-touch-icon' href='b'>");
    session().answer("http://h:8080/dir/a", 200, "image 16x16 transparent");
    session().answer("http://h:8080/dir/b", 200, "image 180x180 opaque");
    fetchAndWait();
    ASSERT_THAT(widths(), ElementsAre(16, 180));
    EXPECT_EQ(candidates_[0].source, IconSource::htmlIcon);
    EXPECT_TRUE(candidates_[0].hasTransparency);
    EXPECT_EQ(candidates_[1].source, IconSource::htmlAppleTouchIcon);
    EXPECT_FALSE(candidates_[1].hasTransparency);
    EXPECT_EQ(queue_, "global");
}

TEST_F(FaviconFetcherHTMLFetchTest, CandidatesComeInTheOrderOfArrival) {
    session().answer(pageAddress, 200, "<link rel='icon' href='a'><link rel='icon' href='b'>");
    session().answer("http://h:8080/dir/a", 200, "image 16x16", 2s);
    session().answer("http://h:8080/dir/b", 200, "image 32x32", 1s);
    fetchAndWait();
    EXPECT_THAT(widths(), ElementsAre(32, 16));
    EXPECT_EQ(queues().now(), 2s) << "the downloads run at the same time";
}

TEST_F(FaviconFetcherHTMLFetchTest, OnlyTheFirstSixEntriesAreDownloaded) {
    std::string html = "<link rel='apple-touch-icon' sizes='512x512' href='touch'>";
    for (int i = 1; i <= 7; ++i) {
        html += "<link rel='icon' sizes='" + std::to_string(i) + "x1' href='" + std::to_string(i) +
                "'>";
    }
    session().answer(pageAddress, 200, html);
    fetchAndWait();
    EXPECT_THAT(session().requestedURLs(),
                ElementsAre(pageAddress, "http://h:8080/dir/7", "http://h:8080/dir/6",
                            "http://h:8080/dir/5", "http://h:8080/dir/4", "http://h:8080/dir/3",
                            "http://h:8080/dir/2"));
}

TEST_F(FaviconFetcherHTMLFetchTest, AnIconNamedTwiceIsDownloadedTwice) {
    session().answer(pageAddress, 200, "<link rel='icon' href='a'><link rel='icon' href='a'>");
    session().answer("http://h:8080/dir/a", 200, "image 16x16");
    fetchAndWait();
    EXPECT_EQ(session().requestCount("http://h:8080/dir/a"), 2U);
    EXPECT_THAT(widths(), ElementsAre(16, 16));
}

TEST_F(FaviconFetcherHTMLFetchTest, AnErrorPageIsSearchedLikeAnyOther) {
    session().answer(pageAddress, 404, "<link rel='icon' href='a'>");
    session().answer("http://h:8080/dir/a", 200, "image 16x16");
    fetchAndWait();
    EXPECT_THAT(widths(), ElementsAre(16));
}

TEST_F(FaviconFetcherHTMLFetchTest, ABodyCountsDespiteAnErrorAndWithoutAResponse) {
    session().answer(pageAddress, {"<link rel='icon' href='a'>", std::nullopt, "reset"});
    session().answer("http://h:8080/dir/a", 200, "image 16x16");
    fetchAndWait();
    EXPECT_THAT(widths(), ElementsAre(16));
}

TEST_F(FaviconFetcherHTMLFetchTest, APageWithoutUsableIconsGivesAnEmptyList) {
    const std::tuple<const char*, platform::URLResult> rows[] = {
        {"no body", {std::nullopt, platform::URLResponse{200}, std::nullopt}},
        {"failed", {std::nullopt, std::nullopt, "no route"}},
        {"empty", {"", platform::URLResponse{200}, std::nullopt}},
        {"no link", {"<p>", platform::URLResponse{200}, std::nullopt}},
        {"Latin-1", {"\xE9<link rel='icon' href='a'>", platform::URLResponse{200}, std::nullopt}},
        {"overlong", {"\xC0\xAF<link rel='icon' href='a'>", platform::URLResponse{200}, {}}},
        {"surrogate", {"\xED\xA0\x80<link rel='icon' href='a'>", platform::URLResponse{200}, {}}},
        {"cut character", {"<link rel='icon' href='a'>\xE6", platform::URLResponse{200}, {}}},
    };
    for (const auto& [what, result] : rows) {
        completions_ = 0;
        session().answer(pageAddress, result);
        fetchAndWait();
        EXPECT_THAT(candidates_, IsEmpty()) << what;
        EXPECT_EQ(session().requests().back().url.absoluteString(), pageAddress) << what;
    }
}

TEST_F(FaviconFetcherHTMLFetchTest, ASilentPageGivesAnEmptyListAfterTheTimeout) {
    session().staySilent(pageAddress);
    fetchAndWait();
    EXPECT_THAT(candidates_, IsEmpty());
    EXPECT_EQ(queues().now(), 10s);
}

TEST_F(FaviconFetcherHTMLFetchTest, AByteOrderMarkAndNULBytesAreOrdinaryText) {
    session().answer(
        pageAddress, 200,
        std::string("\xEF\xBB\xBF<link rel='icon' href='a'>\0", 30) + "<link rel='icon' href='b'>");
    fetchAndWait();
    EXPECT_THAT(session().requestedURLs(),
                ElementsAre(pageAddress, "http://h:8080/dir/a", "http://h:8080/dir/b"));
}

TEST_F(FaviconFetcherHTMLFetchTest, TheEmptyListComesOnceWhenEveryDownloadFails) {
    session().answer(pageAddress, 200, "<link rel='icon' href='a'><link rel='icon' href='b'>");
    session().staySilent("http://h:8080/dir/a");
    fetchAndWait();
    EXPECT_THAT(candidates_, IsEmpty());
    EXPECT_EQ(queues().now(), 10s);
}

}  // namespace
}  // namespace glintmark
