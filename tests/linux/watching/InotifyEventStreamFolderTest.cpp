#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "linux/watching/InotifyEventStream.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/watching/EventStreamFixture.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class InotifyEventStreamFolderTest : public EventStreamFixture {};

TEST_F(InotifyEventStreamFolderTest, AMissingFolderIsWatchedWhenItAppears) {
    watch({"far/away/links"});
    directory_.createDirectories("far/away");
    directory_.createDirectories("far/away/links/a");
    directory_.write("far/away/links/a/x.webloc");
    EXPECT_TRUE(isReported("far/away/links"));
    EXPECT_TRUE(isReported("far/away/links/a"));
    settle("far/away/links");
    directory_.write("far/away/links/a/y.webloc");
    EXPECT_TRUE(isReported("far/away/links/a"));
}

TEST_F(InotifyEventStreamFolderTest, AMissingFolderMovedInWithItsParentsIsWatched) {
    directory_.createDirectories("prepared/away/links/a");
    watch({"far/away/links"});
    directory_.move("prepared", "far");
    EXPECT_TRUE(isReported("far/away/links"));
    EXPECT_TRUE(isReported("far/away/links/a"));
}

TEST_F(InotifyEventStreamFolderTest, AFolderMovedInBeforeItIsFirstLookedForIsNew) {
    directory_.createDirectories("prepared/away/links/a");
    std::atomic<bool> done = false;
    beforeWatching([&](const std::string&) {
        if (!done.exchange(true)) {
            directory_.move("prepared", "far");
        }
        return 0;
    });
    watch({"far/away/links"});
    EXPECT_TRUE(isReported("far/away/links"));
    EXPECT_TRUE(isReported("far/away/links/a"));
}

TEST_F(InotifyEventStreamFolderTest, AFolderThatIsDeletedAndMadeAgainIsWatchedAgain) {
    directory_.createDirectories("far/links/a");
    watchSettled({"far/links"});
    for (int i = 0; i < 3; ++i) {
        directory_.remove("far");
        directory_.createDirectories("far/links/b");
        EXPECT_TRUE(isReported("far/links"));
        EXPECT_TRUE(isReported("far/links/b"));
        settle("far/links");
    }
}

TEST_F(InotifyEventStreamFolderTest, AFolderThatIsReplacedIsWatchedAndTheOldOneForgotten) {
    directory_.createDirectories("links/old");
    directory_.createDirectories("prepared/new");
    watchSettled({"links"});
    directory_.move("links", "before");
    directory_.move("prepared", "links");
    EXPECT_TRUE(isReported("links"));
    EXPECT_TRUE(isReported("links/new"));
    settle("links");
    directory_.write("before/old/x.webloc");
    directory_.write("links/new/x.webloc");
    EXPECT_TRUE(isReported("links/new"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/new")));
}

TEST_F(InotifyEventStreamFolderTest, AFolderThatIsPutBackIsWatchedWithWhatCameMeanwhile) {
    directory_.createDirectories("far/links/a");
    watchSettled({"far/links"});
    directory_.move("far", "aside");
    directory_.createDirectories("aside/links/a/new");
    directory_.move("aside", "far");
    EXPECT_TRUE(isReported("far/links/a/new"));
    settle("far/links");
    directory_.write("far/links/a/new/x.webloc");
    EXPECT_TRUE(isReported("far/links/a/new"));
}

TEST_F(InotifyEventStreamFolderTest, AFolderThatIsPutBackAtOnceIsReportedWithAllBelowIt) {
    directory_.createDirectories("links/a/b");
    watchSettled({"links"});
    directory_.write("links/a/b/x.webloc");
    ASSERT_TRUE(isReported("links/a/b"));
    reports_.forget();
    // The receiver of the first report may have looked while the folder was away.
    directory_.move("links", "aside");
    directory_.move("aside", "links");
    for (const auto* name : {"links", "links/a", "links/a/b"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
}

TEST_F(InotifyEventStreamFolderTest, AFileInTheFoldersPlaceGivesWayToTheFolder) {
    directory_.write("links");
    watch({"links"});
    directory_.remove("links");
    directory_.createDirectories("links");
    EXPECT_TRUE(isReported("links"));
}

TEST_F(InotifyEventStreamFolderTest, AFolderThatIsALinkIsWatchedUnderTheLinksPath) {
    directory_.createDirectories("real/a");
    directory_.createLink("real", "links");
    watchSettled({"links"});
    directory_.write("real/a/x.webloc");
    EXPECT_TRUE(isReported("links/a"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/a")));
}

TEST_F(InotifyEventStreamFolderTest, AFolderIsWatchedWhenItsLinkLeadsSomewhereElse) {
    directory_.createDirectories("one/a");
    directory_.createDirectories("two/b");
    directory_.createLink("one", "links");
    watchSettled({"links"});
    directory_.createLink(directory_.path("two"), "prepared");
    directory_.move("prepared", "links");
    EXPECT_TRUE(isReported("links/b"));
    settle("links");
    directory_.write("two/b/x.webloc");
    EXPECT_TRUE(isReported("links/b"));
}

TEST_F(InotifyEventStreamFolderTest, AFolderIsWatchedWhenTheTargetOfItsLinkAppears) {
    directory_.createLink("far/../far/./away", "links");
    watch({"links"});
    directory_.createDirectories("far/away/a");
    EXPECT_TRUE(isReported("links/a"));
}

TEST_F(InotifyEventStreamFolderTest, LinksThatLeadInACircleDoNoHarm) {
    directory_.createLink("b", "a");
    directory_.createLink("a", "b");
    watch({"a/links"});
    directory_.remove("a");
    directory_.createDirectories("a/links");
    EXPECT_TRUE(isReported("a/links"));
}

TEST_F(InotifyEventStreamFolderTest, AChangeIsReportedByEachSpellingOfEachFolderAboveIt) {
    directory_.createDirectories("links/a/b");
    directory_.createLink("links/a", "shortcut");
    watchSettled({"links", "links/a", "links/a/", "shortcut", "links/../links"});
    directory_.createLink("/nowhere", "links/a/b/x.webloc");  // a single event
    EXPECT_TRUE(isReported("shortcut/b"));
    EXPECT_THAT(reports_.paths(), testing::UnorderedElementsAre(
                                      directory_.path("links/a/b"), directory_.path("shortcut/b"),
                                      directory_.path("links/../links/a/b")));
    reports_.forget();
    directory_.createLink("/nowhere", "links/a/x.webloc");
    EXPECT_TRUE(isReported("shortcut"));
    EXPECT_THAT(reports_.paths(),
                testing::UnorderedElementsAre(
                    directory_.path("links/a"), directory_.path("links/a/"),
                    directory_.path("shortcut"), directory_.path("links/../links/a")));
}

TEST_F(InotifyEventStreamFolderTest, AFolderInAnotherOneIsWatchedOnWhenItIsMovedAway) {
    directory_.createDirectories("links/a/b");
    watchSettled({"links", "links/a"});
    directory_.move("links/a", "links/c");
    EXPECT_TRUE(isReported("links/c"));
    settle("links");
    directory_.write("links/c/b/x.webloc");
    EXPECT_TRUE(isReported("links/c/b"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/c/b")));
}

TEST_F(InotifyEventStreamFolderTest, PathsAreBytes) {
    const std::string name = "links/\xFF\n%s\"\\ \xC3";
    directory_.createDirectories(name);
    watchSettled({"links", name});
    directory_.write(name + "/x");
    EXPECT_TRUE(isReported(name));
    directory_.createDirectories(name + "/\xFE");
    EXPECT_TRUE(isReported(name + "/\xFE"));
}

TEST_F(InotifyEventStreamFolderTest, RelativeFoldersAndAnEmptyListAreHarmless) {
    directory_.createDirectories("links");
    watchSettled({"links"});
    const auto watches = inotifyWatches();
    const auto empty = make({}, 1ms);
    const auto relative = make({"", ".", "..", "relative/folder"}, 1ms);
    for (const auto& stream : {empty.get(), relative.get()}) {
        ASSERT_NE(stream, nullptr);
        stream->setDispatchQueue(queue_);
        EXPECT_TRUE(stream->start());
    }
    settle("links");
    EXPECT_EQ(inotifyWatches(), watches);
}

}  // namespace
}  // namespace glintmark::platform
