#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sysexits.h>

#include "link/IconReport.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark::link {
namespace {

using Outcome = IconResult::Outcome;
using testing::HasSubstr;

class IconReportTest : public doubles::PlatformTest {
protected:
    void SetUp() override {
        platform().bundle.texts = {{"summary.set", "%1 of %2"}, {"summary.planned", "plan %1 %2"}};
    }
};

IconResult found(const std::string& path) {
    return {path, Outcome::set, "http://h/", IconSource::manifest, {180, 64}};
}

TEST_F(IconReportTest, AFileHasOneLine) {
    const auto good = IconReport::line(found("/l/a.webloc"));
    EXPECT_EQ(good.text, "/l/a.webloc: icon.set (manifest, 180x64)");
    EXPECT_FALSE(good.isError);
    const auto bad =
        IconReport::line({.path = "/l/a\n\x1B[31mb.webloc", .outcome = Outcome::noIcon});
    EXPECT_EQ(bad.text, "/l/a??[31mb.webloc: icon.noIcon");
    EXPECT_TRUE(bad.isError);
}

TEST_F(IconReportTest, AFileHasOneJSONObject) {
    EXPECT_EQ(IconReport::jsonLine(found("/l/\"a\n\xFF.webloc")),
              R"({"kind":"file","path":"/l/\"a\n�.webloc","result":"set","link":"http://h/",)"
              R"("source":"manifest","width":180.0,"height":64.0})");
    EXPECT_EQ(IconReport::jsonLine({.path = "/l/a", .outcome = Outcome::unreadable}),
              R"({"kind":"file","path":"/l/a","result":"unreadable","link":null,"source":null,)"
              R"("width":null,"height":null})");
}

TEST_F(IconReportTest, TheSummaryCountsIconsSourcesAndReasons) {
    IconReport report(4);
    report.add(found("a"));
    report.add(found("b"));
    report.add({.path = "c", .outcome = Outcome::noIcon});
    report.add({.path = "d", .outcome = Outcome::unreadable});
    EXPECT_EQ(report.summary(), "2 of 4\n  2  manifest\n  1  icon.unreadable\n  1  icon.noIcon\n");
    EXPECT_EQ(report.jsonSummary(),
              R"({"kind":"summary","files":4,"results":{"set":2,"unreadable":1,"noIcon":1},)"
              R"("sources":{"manifest":2}})");
    EXPECT_EQ(report.status(), EX_UNAVAILABLE);
}

TEST_F(IconReportTest, AnIconThatIsThereIsNoFailure) {
    IconReport report(2);
    report.add(found("a"));
    report.add({.path = "b", .outcome = Outcome::present});
    EXPECT_EQ(report.status(), EX_OK);
}

TEST_F(IconReportTest, TheBarFitsTheTerminal) {
    IconReport report(4);
    EXPECT_EQ(report.bar(30), "[.................] 0/4  +0 -0");
    report.add(found("a"));
    report.add({.path = "b", .outcome = Outcome::noIcon});
    report.add({.path = "c", .outcome = Outcome::present});
    EXPECT_EQ(report.bar(30), "[############.....] 3/4  +1 -1");
    EXPECT_EQ(report.bar(12), "3/4  +1 -1");
    EXPECT_EQ(report.bar(4), "3/4 ");
    EXPECT_LE(report.bar(1000).size(), 60U);
}

}  // namespace
}  // namespace glintmark::link
