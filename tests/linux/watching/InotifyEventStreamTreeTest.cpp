#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "base/system/FileDescriptor.h"
#include "linux/watching/InotifyEventStream.h"
#include "tests/linux/watching/EventStreamFixture.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

class InotifyEventStreamTreeTest : public EventStreamFixture {
protected:
    static constexpr int levels = PATH_MAX / NAME_MAX + 3;

    /// Nests directories of this name so deep that the paths of the lowest exceed PATH_MAX.
    void nestBeyondMaximumPath(const std::string& name) {
        FileDescriptor directory(::open(directory_.path("links").c_str(), O_PATH | O_CLOEXEC));
        for (int i = 0; i < levels; ++i) {
            ASSERT_EQ(::mkdirat(directory.get(), name.c_str(), 0700), 0);
            directory = FileDescriptor(::openat(directory.get(), name.c_str(), O_PATH | O_CLOEXEC));
        }
    }
};

TEST_F(InotifyEventStreamTreeTest, WhatExistedBeforeIsNotReported) {
    directory_.createDirectories("links/a/b/c");
    directory_.write("links/a/b/c/old.webloc");
    ageTimeStamps();
    watch({"links"});
    directory_.write("links/a/new");
    EXPECT_TRUE(isReported("links/a"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/a")));
}

TEST_F(InotifyEventStreamTreeTest, AChangeAheadOfTheWalkIsReportedWhenTheWalkArrives) {
    directory_.createDirectories("links/a/old");
    directory_.createDirectories("outside/tree");
    std::atomic<bool> done = false;
    beforeWatching([&](const std::string& path) {
        if (path == directory_.path("links/a") && !done.exchange(true)) {
            directory_.createDirectories("links/a/new/newer");
            directory_.move("outside", "links/a/moved");
            directory_.write("links/a/old/x.webloc");
        }
        return 0;
    });
    watch({"links"});
    for (const auto* name : {"links/a", "links/a/new", "links/a/new/newer", "links/a/moved",
                             "links/a/moved/tree", "links/a/old"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
}

TEST_F(InotifyEventStreamTreeTest, ANewDirectoryIsReportedWithAllBelowIt) {
    directory_.createDirectories("links");
    watchSettled({"links"});
    directory_.createDirectories("links/a/b/c/d");
    directory_.write("links/a/b/c/d/x.webloc");
    for (const auto* name : {"links", "links/a", "links/a/b", "links/a/b/c", "links/a/b/c/d"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
}

TEST_F(InotifyEventStreamTreeTest, WhatIsMadeInANewDirectoryJustBeforeItIsWatchedIsNotLost) {
    directory_.createDirectories("links");
    watchSettled({"links"});
    beforeWatching([this](const std::string& path) {
        if (path == directory_.path("links/a")) {
            directory_.createDirectories("links/a/b");
            directory_.write("links/a/b/x.webloc");
        }
        return 0;
    });
    directory_.createDirectories("links/a");
    EXPECT_TRUE(isReported("links/a"));
    EXPECT_TRUE(isReported("links/a/b"));
}

TEST_F(InotifyEventStreamTreeTest, AFullTreeMovedInIsReportedAndWatched) {
    directory_.createDirectories("links");
    directory_.createDirectories("outside/a/b");
    directory_.write("outside/a/b/x.webloc");
    watchSettled({"links"});
    directory_.move("outside", "links/inside");
    for (const auto* name : {"links/inside", "links/inside/a", "links/inside/a/b"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
    reports_.forget();
    directory_.write("links/inside/a/b/y.webloc");
    EXPECT_TRUE(isReported("links/inside/a/b"));
}

TEST_F(InotifyEventStreamTreeTest, ADirectoryMovedWithinATreeIsWatchedUnderItsNewPath) {
    directory_.createDirectories("links/a/deep/deeper");
    directory_.createDirectories("links/b");
    watchSettled({"links"});
    directory_.move("links/a", "links/b/c");
    EXPECT_TRUE(isReported("links/b/c"));
    settle("links");
    directory_.write("links/b/c/deep/deeper/x.webloc");
    EXPECT_TRUE(isReported("links/b/c/deep/deeper"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/b/c/deep/deeper")));
}

TEST_F(InotifyEventStreamTreeTest, AMovedDirectoryIsReportedWithAllBelowIt) {
    directory_.createDirectories("links/a/deep/deeper");
    watchSettled({"links"});
    directory_.write("links/a/deep/deeper/x.webloc");
    ASSERT_TRUE(isReported("links/a/deep/deeper"));
    // The receiver may list the old path only after the file has left it.
    directory_.move("links/a", "links/b");
    for (const auto* name : {"links/b", "links/b/deep", "links/b/deep/deeper"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
}

TEST_F(InotifyEventStreamTreeTest, ADirectoryMovedIntoOneMadeJustBeforeIsReportedWithAllBelowIt) {
    directory_.createDirectories("links/a/deep/deeper");
    ageTimeStamps();
    watchSettled({"links"});
    std::atomic<bool> done = false;
    beforeWatching([&](const std::string& path) {
        if (path == directory_.path("links/first") && !done.exchange(true)) {
            // All before the stream can watch the new directory: its entries have no events.
            directory_.createDirectories("links/new");
            directory_.move("links/a", "links/new/a");
            directory_.createDirectories("links/new/a/made/below");
        }
        return 0;
    });
    directory_.createDirectories("links/first");
    for (const auto* name :
         {"links/new/a", "links/new/a/deep", "links/new/a/deep/deeper", "links/new/a/made/below"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
    settle("links");
    directory_.write("links/new/a/made/below/x.webloc");
    EXPECT_TRUE(isReported("links/new/a/made/below"));
}

TEST_F(InotifyEventStreamTreeTest, AnEventOfExchangedDirectoriesDoesNotMisplaceWhatIsInThem) {
    for (const auto* name : {"links/one/sub", "links/other/sub", "outside"}) {
        directory_.createDirectories(name);
    }
    ageTimeStamps();
    watchSettled({"links"});
    std::atomic<bool> done = false;
    beforeWatching([&](const std::string& path) {
        if (path == directory_.path("links/first") && !done.exchange(true)) {
            // When its event is handled, the other directory is under the path.
            EXPECT_EQ(::chmod(directory_.path("links/one/sub").c_str(), 0711), 0);
            directory_.move("links/one", "outside/aside");
            directory_.move("links/other", "links/one");
            directory_.move("outside/aside", "links/other");
        }
        return 0;
    });
    directory_.createDirectories("links/first");
    EXPECT_TRUE(isReported("links/other/sub"));
    settle("links");
    directory_.createDirectories("links/one/sub/made");
    EXPECT_TRUE(isReported("links/one/sub/made"));
}

TEST_F(InotifyEventStreamTreeTest, ADirectoryMovedBelowWhatWasInItIsReportedWithAllBelowIt) {
    directory_.createDirectories("links/a/inner");
    directory_.createDirectories("links/a/deep/deeper");
    ageTimeStamps();
    watchSettled({"links"});
    std::atomic<bool> done = false;
    beforeWatching([&](const std::string& path) {
        if (path == directory_.path("links/first") && !done.exchange(true)) {
            // The inner directory ends under its old path, but in another directory.
            directory_.move("links/a/inner", "links/aside");
            directory_.move("links/a", "links/b");
            directory_.createDirectories("links/a");
            directory_.move("links/aside", "links/a/inner");
            directory_.move("links/b", "links/a/inner/b");
        }
        return 0;
    });
    directory_.createDirectories("links/first");
    for (const auto* name : {"links/a/inner", "links/a/inner/b", "links/a/inner/b/deep/deeper"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
    settle("links");
    directory_.write("links/a/inner/b/deep/deeper/x.webloc");
    EXPECT_TRUE(isReported("links/a/inner/b/deep/deeper"));
}

TEST_F(InotifyEventStreamTreeTest, AFolderInAFolderIsNotTakenForMoved) {
    directory_.createDirectories("links/inner/deep");
    ageTimeStamps();
    watch({"links", "links/inner"});
    directory_.createDirectories("links/last");
    EXPECT_TRUE(isReported("links/last"));
    EXPECT_FALSE(reports_.has(directory_.path("links/inner/deep")));
}

TEST_F(InotifyEventStreamTreeTest, ADirectoryMovedAheadOfTheWalkIsFoundInItsNewPlace) {
    directory_.createDirectories("links/early/a/deep");
    directory_.createDirectories("links/late/b/deep");
    std::atomic<bool> done = false;
    beforeWatching([&](const std::string& path) {
        if (path.ends_with("/deep") && !done.exchange(true)) {
            directory_.move("links/early/a", "links/late/a");
            directory_.move("links/late/b", "links/early/b");
        }
        return 0;
    });
    watch({"links"});
    for (const auto* name : {"links/late/a/deep", "links/early/b/deep"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
    settle("links");
    for (const auto* name : {"links/late/a/deep", "links/early/b/deep"}) {
        directory_.write(std::string(name) + "/x");
        EXPECT_TRUE(isReported(name)) << name;
    }
}

TEST_F(InotifyEventStreamTreeTest, NamesAsLongAsTheSystemAllowsAndPathsBeyondThatAreHarmless) {
    directory_.createDirectories("links/near");
    watchSettled({"links"});
    const std::string name(NAME_MAX, 'n');
    std::string path = "links";
    ASSERT_NO_FATAL_FAILURE(nestBeyondMaximumPath(name));
    for (int depth = 0; depth < 3; ++depth) {
        path += "/" + name;
        EXPECT_TRUE(isReported(path));
    }
    directory_.write("links/near/x");
    EXPECT_TRUE(isReported("links/near"));
}

TEST_F(InotifyEventStreamTreeTest, ManyMovesInARowLeaveTheRightPaths) {
    directory_.createDirectories("links/a/x/y");
    directory_.createDirectories("links/b");
    watchSettled({"links"});
    for (int i = 0; i < 50; ++i) {
        directory_.move("links/a/x", "links/b/x" + std::to_string(i));
        directory_.move("links/b", "links/c");
        directory_.move("links/c/x" + std::to_string(i), "links/a/x");
        directory_.move("links/c", "links/b");
    }
    directory_.move("links/a/x/y", "links/y");
    directory_.move("links/a", "links/y/a");  // now below what was below it
    settle("links");
    directory_.write("links/y/a/x/file");
    EXPECT_TRUE(isReported("links/y/a/x"));
    directory_.write("links/y/file");
    EXPECT_TRUE(isReported("links/y"));
    directory_.write("links/b/file");
    EXPECT_TRUE(isReported("links/b"));
}

TEST_F(InotifyEventStreamTreeTest, TwoDirectoriesThatChangePlacesKeepTheirContents) {
    directory_.createDirectories("links/a/in-a");
    directory_.createDirectories("links/b/in-b");
    watchSettled({"links"});
    constexpr unsigned exchange = 2;  // RENAME_EXCHANGE of renameat2(2)
    ASSERT_EQ(::syscall(SYS_renameat2, -1, directory_.path("links/a").c_str(), -1,
                        directory_.path("links/b").c_str(), exchange),
              0);
    EXPECT_TRUE(isReported("links/a"));
    settle("links");
    directory_.write("links/a/in-b/x");
    EXPECT_TRUE(isReported("links/a/in-b"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/a/in-b")));
}

TEST_F(InotifyEventStreamTreeTest, ADirectoryMovedOutIsForgotten) {
    directory_.createDirectories("links/a/b");
    directory_.createDirectories("outside");
    watchSettled({"links"});
    directory_.move("links/a", "outside/a");
    directory_.write("outside/a/b/x.webloc");
    directory_.write("links/y.webloc");
    EXPECT_TRUE(isReported("links"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links")));
}

TEST_F(InotifyEventStreamTreeTest, ADirectoryMovedOutAndBackIsWatchedWithWhatCameMeanwhile) {
    directory_.createDirectories("links/a/b");
    watchSettled({"links"});
    directory_.move("links/a", "outside");
    directory_.createDirectories("outside/b/new");
    directory_.move("outside", "links/back");
    EXPECT_TRUE(isReported("links/back/b/new"));
    reports_.forget();
    directory_.write("links/back/b/new/x.webloc");
    EXPECT_TRUE(isReported("links/back/b/new"));
}

TEST_F(InotifyEventStreamTreeTest, ADeletedDirectoryThatIsMadeAgainIsWatchedAgain) {
    directory_.createDirectories("links/a/b");
    watchSettled({"links"});
    for (int i = 0; i < 3; ++i) {
        directory_.remove("links/a");
        directory_.createDirectories("links/a/b");
        EXPECT_TRUE(isReported("links/a/b"));
        settle("links");
        directory_.write("links/a/b/x.webloc");
        EXPECT_TRUE(isReported("links/a/b"));
        settle("links");
    }
}

TEST_F(InotifyEventStreamTreeTest, LinksBelowAFolderAreNotFollowed) {
    directory_.createDirectories("links/a");
    directory_.createDirectories("real/b");
    directory_.createLink(directory_.path("real"), "links/link");
    watchSettled({"links"});
    directory_.createLink(directory_.path("real"), "links/a/link");
    EXPECT_TRUE(isReported("links/a"));
    settle("links");
    directory_.write("real/b/x.webloc");
    directory_.write("real/x.webloc");
    directory_.write("links/x.webloc");
    EXPECT_TRUE(isReported("links"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links")));
}

}  // namespace
}  // namespace glintmark::platform
