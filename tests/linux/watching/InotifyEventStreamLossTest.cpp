#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "linux/watching/InotifyEventStream.h"
#include "tests/linux/watching/EventStreamFixture.h"

namespace glintmark::platform {
namespace {

/// Directories that are reported because of where they are now, not because of their time stamps,
/// while events are lost.
class InotifyEventStreamLossTest : public EventStreamFixture {
protected:
    InotifyEventStreamLossTest() { directory_.createDirectories("links/busy"); }

    /// Watches what exists. Its time stamps are too old to count as changes.
    void watchOldTree(const std::vector<std::string>& names) {
        ageTimeStamps();
        watchSettled(names);
    }

    /// Runs `action` on the stream's thread, once, just before it watches `name`.
    void onceBeforeWatching(const std::string& name, std::function<void()> action) {
        beforeWatching([this, name, action = std::move(action)](const std::string& path) {
            if (path == directory_.path(name)) {
                beforeWatching(nullptr);
                action();
                ++actions_;
            }
            return 0;
        });
    }

    void expectReported(const std::vector<std::string>& names) {
        for (const auto& name : names) {
            EXPECT_TRUE(isReported(name)) << name;
        }
        EXPECT_GT(actions_, 0);
    }

    // The stream reads the events in between after so many directories, or entries of one.
    static constexpr int manyDirectories = 40;
    static constexpr int manyEntries = 600;

private:
    std::atomic<int> actions_ = 0;
};

TEST_F(InotifyEventStreamLossTest, AMovedTreeIsReportedThoughALossInterruptsItsWalk) {
    directory_.createDirectories("links/moving/deep/deeper");
    watchOldTree({"links"});
    onceBeforeWatching("links/moved", [this] { overflow("links/busy"); });
    directory_.move("links/moving", "links/moved");
    expectReported({"links/moved", "links/moved/deep", "links/moved/deep/deeper"});
}

TEST_F(InotifyEventStreamLossTest, ATreeMovedInAheadOfTheFirstWalkIsReportedThoughALossInterrupts) {
    directory_.createDirectories("links/late");
    directory_.createDirectories("outside/deep/deeper");
    for (int i = 0; i < manyEntries; ++i) {
        directory_.write("outside/" + std::to_string(i));
    }
    ageTimeStamps();
    beforeWatching([this](const std::string& path) {
        if (path == directory_.path("links/late")) {
            directory_.move("outside", "links/late/came");
        } else if (path == directory_.path("links/late/came")) {
            overflow("links");
            beforeWatching(nullptr);
        }
        return 0;
    });
    watch({"links"});
    for (const auto* name : {"links/late/came/deep", "links/late/came/deep/deeper"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
}

TEST_F(InotifyEventStreamLossTest, AFolderPutBackIsReportedThoughALossInterruptsItsWalk) {
    directory_.createDirectories("links/quiet/deep");
    watchOldTree({"links"});
    onceBeforeWatching("links/first", [this] {
        directory_.move("links", "aside");
        directory_.move("aside", "links");
        onceBeforeWatching("links", [this] { overflow("links/busy"); });
    });
    directory_.createDirectories("links/first");
    expectReported({"links/quiet", "links/quiet/deep"});
}

TEST_F(InotifyEventStreamLossTest, AFolderPutBackDuringTheWalkThatFollowsALossIsReported) {
    directory_.createDirectories("links/quiet/deep");
    for (int i = 0; i < manyDirectories; ++i) {
        directory_.createDirectories("links/" + std::to_string(i) + "/below");
    }
    watchOldTree({"links"});
    onceBeforeWatching("links/first", [this] {
        overflow("links/busy");
        directory_.move("links", "aside");
        directory_.move("aside", "links");
    });
    directory_.createDirectories("links/first");
    expectReported({"links/quiet", "links/quiet/deep"});
}

TEST_F(InotifyEventStreamLossTest, WhatWasDeliveredLatelyIsReportedAgainAfterALoss) {
    directory_.createDirectories("links/a/b");
    watchOldTree({"links", "way/missing"});
    directory_.write("links/a/b/x.webloc");
    ASSERT_TRUE(isReported("links/a/b"));
    ageTimeStamps();
    settle("links");
    onceBeforeWatching("way", [this] {
        // The receiver of the first report may have looked while the directory was away.
        overflow("links/busy");
        directory_.move("links/a", "links/away");
        directory_.move("links/away", "links/a");
    });
    directory_.createDirectories("way");
    expectReported({"links/a/b"});
}

TEST_F(InotifyEventStreamLossTest, AMovedTreeIsReportedThoughTheSystemRefusesForAMoment) {
    directory_.createDirectories("links/moving/deep/deeper");
    watchOldTree({"links"});
    std::atomic<int> refused = 0;
    beforeWatching([&](const std::string& path) {
        return path == directory_.path("links/moved/deep") && ++refused == 1 ? ENOMEM : 0;
    });
    directory_.move("links/moving", "links/moved");
    for (const auto* name : {"links/moved/deep", "links/moved/deep/deeper"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
}

}  // namespace
}  // namespace glintmark::platform
