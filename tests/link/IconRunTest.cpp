#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "link/IconRun.h"
#include "platform/Workspace.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::link {
namespace {

using Outcome = IconResult::Outcome;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class IconRunTest : public doubles::PlatformTest {
protected:
    /// A link file and its site, which has an icon.
    void addLink(const std::string& path, const std::string& host) {
        files().create(path, weblocBytes("http://" + host + "/"));
        session().answer("http://" + host + "/favicon.ico", 200, "image 64x64 opaque");
    }

    std::shared_ptr<IconRun> begin(const std::vector<std::string>& arguments) {
        auto run = std::make_shared<IconRun>(
            iconTasks(arguments, isRecursive_), options_,
            [this](const IconResult& result) {
                EXPECT_EQ(queues().current(), "main");
                results_.push_back(result);
            },
            [this] { ++ends_; });
        platform().queues.main().async([run] { run->start(); });
        return run;
    }

    void run(const std::vector<std::string>& arguments) {
        const auto current = begin(arguments);
        queues().runUntilIdle();
        EXPECT_EQ(ends_, 1);
    }

    std::vector<std::pair<std::string, Outcome>> outcomes() const {
        std::vector<std::pair<std::string, Outcome>> pairs;
        for (const auto& result : results_) {
            pairs.emplace_back(result.path, result.outcome);
        }
        return pairs;
    }

    const std::vector<doubles::FakeWorkspace::Icon>& icons() {
        return platform().workspace.icons();
    }

    IconRun::Options options_{.hasIcon = [](const std::string&) { return false; },
                              .storedPicture =
                                  [](const platform::PreparedIcon&) {
                                      return std::optional<std::string>("/store/p.png");
                                  }};
    bool isRecursive_ = false;
    std::vector<IconResult> results_;
    int ends_ = 0;
};

TEST_F(IconRunTest, AFileGetsTheBestIconOfItsSite) {
    addLink("/l/a.webloc", "a.example");
    run({"/l/a.webloc"});
    ASSERT_EQ(icons().size(), 1U);
    EXPECT_EQ(icons()[0].path, "/l/a.webloc");
    EXPECT_EQ(icons()[0].image.size().width, 512);
    EXPECT_NE(icons()[0].read.value().inode, 0U);
    ASSERT_EQ(results_.size(), 1U);
    EXPECT_EQ(results_[0].outcome, Outcome::set);
    EXPECT_EQ(results_[0].link, "http://a.example/");
    EXPECT_EQ(results_[0].source, IconSource::faviconICO);
    EXPECT_EQ(results_[0].size.width, 64);
}

TEST_F(IconRunTest, EachFailureHasItsReason) {
    files().create("/l/empty.webloc", "nothing");
    files().create("/l/bare.webloc", weblocBytes("bare.example"));
    files().create("/l/none.webloc", weblocBytes("http://none.example/"));
    run({"/l/gone.webloc", "/l/empty.webloc", "/l/bare.webloc", "/l/none.webloc"});
    EXPECT_THAT(outcomes(), UnorderedElementsAre(std::pair("/l/gone.webloc", Outcome::unreadable),
                                                 std::pair("/l/empty.webloc", Outcome::noLink),
                                                 std::pair("/l/bare.webloc", Outcome::noAddress),
                                                 std::pair("/l/none.webloc", Outcome::noIcon)));
}

TEST_F(IconRunTest, ARefusedIconIsAFailure) {
    addLink("/l/a.webloc", "a.example");
    platform().workspace.refuse();
    run({"/l/a.webloc"});
    EXPECT_THAT(outcomes(), ElementsAre(std::pair("/l/a.webloc", Outcome::refused)));
}

TEST_F(IconRunTest, ADryRunAsksForNothing) {
    addLink("/l/a.webloc", "a.example");
    options_.isDryRun = true;
    run({"/l/a.webloc"});
    EXPECT_THAT(outcomes(), ElementsAre(std::pair("/l/a.webloc", Outcome::planned)));
    EXPECT_THAT(session().requests(), IsEmpty());
    EXPECT_THAT(icons(), IsEmpty());
}

TEST_F(IconRunTest, FilesWithAnIconAreLeftAloneOnRequest) {
    addLink("/l/a.webloc", "a.example");
    addLink("/l/b.webloc", "b.example");
    options_.isMissingOnly = true;
    options_.hasIcon = [](const std::string& path) { return path == "/l/a.webloc"; };
    run({"/l"});
    EXPECT_THAT(outcomes(), UnorderedElementsAre(std::pair("/l/a.webloc", Outcome::present),
                                                 std::pair("/l/b.webloc", Outcome::set)));
}

TEST_F(IconRunTest, AFolderStandsForItsLinkFiles) {
    addLink("/l/b.webloc", "b.example");
    addLink("/l/a.webloc", "a.example");
    addLink("/l/in/c.webloc", "c.example");
    addLink("/l/.hidden/d.webloc", "d.example");
    files().create("/l/text.txt", "text");
    files().create("/l/program.desktop", "[Desktop Entry]\nType=Application\n");
    options_.maximumAtOnce = 1;
    run({"/l", "/l/a.webloc"});
    EXPECT_THAT(outcomes(), ElementsAre(std::pair("/l/a.webloc", Outcome::set),
                                        std::pair("/l/b.webloc", Outcome::set)));
}

TEST_F(IconRunTest, ARecursiveRunTakesTheFoldersInAFolder) {
    addLink("/l/a.webloc", "a.example");
    addLink("/l/in/deep/c.webloc", "c.example");
    addLink("/l/.hidden/d.webloc", "d.example");
    files().createLink("/l/loop", "/l");
    isRecursive_ = true;
    run({"/l/"});
    EXPECT_THAT(outcomes(), UnorderedElementsAre(std::pair("/l/a.webloc", Outcome::set),
                                                 std::pair("/l/in/deep/c.webloc", Outcome::set)));
}

TEST_F(IconRunTest, NothingToDoEndsAtOnce) {
    files().createDirectory("/l");
    run({"/l"});
    EXPECT_THAT(results_, IsEmpty());
}

TEST_F(IconRunTest, OnlySoManyLinksAreFetchedAtOnce) {
    options_.maximumAtOnce = 2;
    for (const std::string name : {"a", "b", "c", "d", "e"}) {
        files().create("/l/" + name + ".webloc", weblocBytes("http://" + name + ".example/"));
        session().answer("http://" + name + ".example/", 200, "", 1s);
    }
    const auto current = begin({"/l"});
    queues().advance(500ms);
    EXPECT_EQ(session().requestCount("http://a.example/"), 1U);
    EXPECT_EQ(session().requestCount("http://b.example/"), 1U);
    EXPECT_EQ(session().requestCount("http://c.example/"), 0U);
    queues().advance(1s);
    EXPECT_EQ(session().requestCount("http://c.example/"), 1U);
    EXPECT_EQ(session().requestCount("http://e.example/"), 0U);
    queues().runUntilIdle();
    EXPECT_EQ(results_.size(), 5U);
    EXPECT_EQ(ends_, 1);
}

TEST_F(IconRunTest, ASearchThatNeverEndsIsGivenUp) {
    addLink("/l/a.webloc", "a.example");
    session().neverAnswer("http://a.example/");
    options_.maximumTime = 10s;
    const auto current = begin({"/l/a.webloc"});
    queues().advance(9s);
    EXPECT_EQ(ends_, 0);
    queues().advance(2s);
    EXPECT_EQ(ends_, 1);
    EXPECT_THAT(outcomes(), ElementsAre(std::pair("/l/a.webloc", Outcome::late)));
}

TEST_F(IconRunTest, AStoppedRunSetsNoFurtherIcon) {
    options_.maximumAtOnce = 1;
    addLink("/l/a.webloc", "a.example");
    addLink("/l/b.webloc", "b.example");
    session().answer("http://a.example/", 200, "", 1s);
    const auto current = begin({"/l"});
    queues().advance(500ms);
    platform().queues.main().async([current] { current->stop(); });
    queues().runPending();
    EXPECT_EQ(ends_, 1);
    EXPECT_THAT(outcomes(), ElementsAre(std::pair("/l/a.webloc", Outcome::interrupted),
                                        std::pair("/l/b.webloc", Outcome::interrupted)));
    queues().runUntilIdle();
    EXPECT_THAT(icons(), IsEmpty());
    EXPECT_EQ(ends_, 1);
}

TEST_F(IconRunTest, TheResultOfALateSearchIsDropped) {
    addLink("/l/a.webloc", "a.example");
    session().answer("http://a.example/", 200, "", 20s);
    options_.maximumTime = 10s;
    run({"/l/a.webloc"});
    EXPECT_THAT(outcomes(), ElementsAre(std::pair("/l/a.webloc", Outcome::late)));
    EXPECT_THAT(icons(), IsEmpty());
}

TEST_F(IconRunTest, ADesktopEntryWhosePictureIsNotStoredStaysAsItIs) {
    addLink("/l/x.webloc", "a.example");
    files().create("/l/a.desktop", "[Desktop Entry]\nType=Link\nURL=http://a.example/\n");
    options_.storedPicture = [](const platform::PreparedIcon&) { return std::nullopt; };
    run({"/l/a.desktop"});
    EXPECT_THAT(outcomes(), ElementsAre(std::pair("/l/a.desktop", Outcome::refused)));
    EXPECT_THAT(icons(), IsEmpty());
}

}  // namespace
}  // namespace glintmark::link
