#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "favicon/FaviconFetcher.h"
#include "link/FetchReport.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark::link {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The fakes as services, with a recorder that calls the fakes for session and decoder.
class FetchReportTest : public testing::Test {
protected:
    FetchReport report(const std::string& link) {
        const auto url = URL::parse(link).value();
        std::optional<std::vector<IconCandidate>> found;
        FaviconFetcher::collectCandidates(url, url.host().value(),
                                          [&](auto candidates) { found = std::move(candidates); });
        fakes_.queues.runUntilIdle();
        return {recorder_.requests(), found.value()};
    }

    doubles::FakeURLSession& session() { return fakes_.urlSession; }

private:
    doubles::Fakes fakes_;
    FetchRecorder recorder_{fakes_.urlSession, fakes_.imageDecoder};
    platform::Services services_ =
        fakes_.servicesWith({.imageDecoder = &recorder_, .urlSession = &recorder_});
    platform::ServicesScope scope_{services_};
};

TEST_F(FetchReportTest, EveryRequestIsShownWithItsOutcome) {
    session().answer("http://h/", 200, "<link rel='icon' href='a'>");
    session().answer("http://h/a", 200, "image 32x30 opaque");
    session().answer("http://h/favicon.ico", 200, "<html>");
    session().fail("http://h/manifest.json", "no route");
    const auto result = report("http://h/");
    ASSERT_EQ(result.requests.size(), 9U);
    const std::string table = asTable(result);
    EXPECT_THAT(table, HasSubstr("browser http://h/\n"));
    EXPECT_THAT(table,
                HasSubstr("http://h/a\n" + std::string(28, ' ') + "200, 18 bytes, image 32x30\n"));
    EXPECT_THAT(table, HasSubstr("200, 6 bytes, no image\n"));
    EXPECT_THAT(table, HasSubstr("own     http://h/manifest.json\n"));
    EXPECT_THAT(table, HasSubstr("no response, no body, no route\n"));
    EXPECT_THAT(table, HasSubstr("404, 0 bytes\n"));
}

TEST_F(FetchReportTest, TheWinnerIsTheProgramsOwnChoice) {
    session().answer("http://h/", 200,
                     "<link rel='icon' href='a'><link rel='apple-touch-icon' href='b'>");
    session().answer("http://h/a", 200, "image 32x32 transparent");
    session().answer("http://h/b", 200, "image 180x180 opaque");
    const auto result = report("http://h/");
    ASSERT_EQ(result.candidates.size(), 2U);
    EXPECT_EQ(result.winner, 1U);
    const std::string table = asTable(result);
    EXPECT_THAT(table,
                HasSubstr("\n  htmlIcon               32x32 yes           552 http://h/a\n"));
    EXPECT_THAT(table,
                HasSubstr("\n* htmlAppleTouchIcon   180x180 no           2182 http://h/b\n"));
    EXPECT_THAT(table, HasSubstr("\nWinner: htmlAppleTouchIcon http://h/b\n"));
}

TEST_F(FetchReportTest, AWinnerWithoutTheHighestScoreIsExplained) {
    const std::string explanation = "(No score helps an image that is too narrow.)\n";
    session().answer("http://h/favicon.ico", 200, "image 48x48 opaque");
    EXPECT_THAT(asTable(report("http://h/")), Not(HasSubstr(explanation)));
    session().answer("http://h/", 200, "<link rel='icon' href='a'>");
    session().answer("http://h/a", 200, "image 47x47 transparent");
    const std::string table = asTable(report("http://h/"));
    EXPECT_THAT(table, HasSubstr("\nWinner: faviconICO http://h/favicon.ico\n" + explanation));
}

TEST_F(FetchReportTest, EachJSONLineIsOneObject) {
    session().answer("http://h/favicon.ico", 200, "image 16x16 transparent");
    session().fail("http://h/manifest.json", "a \"quoted\" \xFF error");
    const auto lines = linesOf(asJSONLines(report("http://h/")));
    ASSERT_EQ(lines.size(), 10U);  // eight requests, a candidate, the winner
    EXPECT_THAT(lines[0],
                MatchesRegex(R"(\{"kind":"request","url":"http://h/","userAgent":"Mozilla.*",)"
                             R"("beginMs":[0-9.e-]+,"durationMs":[0-9.e-]+,"status":404,"bytes":0,)"
                             R"("error":null,"decoded":false,"image":null\})"));
    EXPECT_THAT(lines[2], HasSubstr(R"("userAgent":null)"));
    EXPECT_THAT(lines[2], HasSubstr(R"("error":"a \"quoted\" )"));
    EXPECT_THAT(lines[4], HasSubstr(R"("decoded":true,"image":{"width":16.0,"height":16.0})"));
    EXPECT_EQ(lines[8], R"({"kind":"candidate","source":"faviconICO","url":"http://h/favicon.ico",)"
                        R"("width":16.0,"height":16.0,"transparent":true,"score":521})");
    EXPECT_EQ(lines[9],
              R"({"kind":"winner","candidate":{"source":"faviconICO",)"
              R"("url":"http://h/favicon.ico","width":16.0,"height":16.0,"transparent":true,)"
              R"("score":521}})");
}

TEST_F(FetchReportTest, AFetchWithoutIconHasNoWinner) {
    const auto result = report("http://h/");
    EXPECT_FALSE(result.winner);
    EXPECT_THAT(asTable(result), HasSubstr("\nNo icon.\n"));
    EXPECT_EQ(linesOf(asJSONLines(result)).back(), R"({"kind":"winner","candidate":null})");
}

}  // namespace
}  // namespace glintmark::link
