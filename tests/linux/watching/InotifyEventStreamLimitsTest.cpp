#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "linux/watching/InotifyEventStream.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/Unprivileged.h"
#include "tests/linux/watching/EventStreamFixture.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

class InotifyEventStreamLimitsTest : public EventStreamFixture {
protected:
    void setMode(const std::string& name, mode_t mode) {
        ASSERT_EQ(::chmod(directory_.path(name).c_str(), mode), 0);
    }

    /// Closes the directories and watches with the rights of a user who owns no files. An ordinary
    /// user who runs the test owns them, but cannot read what is closed either.
    template <typename... Names>
    void watchUnprivileged(Names... closed) {
        (setMode(closed, 0), ...);
        setMode(".", 0755);
        {
            const Unprivileged unprivileged;
            watch({"links"});
        }
        settle("links");  // by then the stream has tried and failed
    }
};

TEST_F(InotifyEventStreamLimitsTest, ADirectoryThatMayNotBeReadIsSkipped) {
    directory_.createDirectories("links/closed/inner");
    directory_.createDirectories("links/open");
    ASSERT_EQ(::chmod(directory_.path("links/closed").c_str(), 0), 0);
    ASSERT_EQ(::chmod(directory_.path().c_str(), 0755), 0);
    {
        const Unprivileged unprivileged;
        watch({"links"});
    }
    ASSERT_TRUE(waitFor([this] {
        directory_.write("links/open/x");
        directory_.remove("links/open/x");
        return reports_.has(directory_.path("links/open"));
    }));
    ASSERT_EQ(::chmod(directory_.path("links/closed").c_str(), 0755), 0);
}

TEST_F(InotifyEventStreamLimitsTest, AClosedDirectoryIsTakenUpWithAllBelowWhenItOpens) {
    directory_.createDirectories("links/a/closed/b/inner/c");
    watchUnprivileged("links/a/closed/b/inner", "links/a/closed");
    setMode("links/a/closed", 0755);
    EXPECT_TRUE(isReported("links/a/closed"));
    EXPECT_TRUE(isReported("links/a/closed/b"));
    setMode("links/a/closed/b/inner", 0755);
    EXPECT_TRUE(isReported("links/a/closed/b/inner"));
    EXPECT_TRUE(isReported("links/a/closed/b/inner/c"));
    settle("links");
    directory_.write("links/a/closed/b/inner/c/x.webloc");
    EXPECT_TRUE(isReported("links/a/closed/b/inner/c"));
}

TEST_F(InotifyEventStreamLimitsTest,
       AWatchedDirectoryThatWasClosedMeanwhileIsReportedWithAllBelow) {
    directory_.createDirectories("links/a/b");
    watchUnprivileged();
    setMode("links/a", 0);
    EXPECT_TRUE(isReported("links/a"));  // the receiver can list nothing below now
    reports_.forget();
    setMode("links/a", 0755);
    EXPECT_TRUE(isReported("links/a"));
    EXPECT_TRUE(isReported("links/a/b"));
}

TEST_F(InotifyEventStreamLimitsTest, ADirectoryThatMayOnlyBeReadIsTakenUpWhenItMayBeSearched) {
    directory_.createDirectories("links/a/b");
    setMode("links/a", 0444);
    watchUnprivileged();
    setMode("links/a", 0755);
    EXPECT_TRUE(isReported("links/a/b"));
}

TEST_F(InotifyEventStreamLimitsTest, OtherAttributesOfADirectoryReportNothingBelowIt) {
    directory_.createDirectories("links/a/b");
    watchSettled({"links"});
    setMode("links/a", 0700);
    EXPECT_TRUE(isReported("links"));
    EXPECT_TRUE(isReported("links/a"));
    directory_.createDirectories("links/last");
    EXPECT_TRUE(isReported("links/last"));
    EXPECT_FALSE(reports_.has(directory_.path("links/a/b")));
}

TEST_F(InotifyEventStreamLimitsTest, AFolderIsWatchedOnceItMayBeRead) {
    directory_.createDirectories("far/links/a");
    directory_.createDirectories("near");
    ASSERT_EQ(::chmod(directory_.path().c_str(), 0755), 0);
    for (const auto* closed : {"far", "far/links"}) {
        ASSERT_EQ(::chmod(directory_.path(closed).c_str(), 0), 0);
        {
            const Unprivileged unprivileged;
            watch({"near", "far/links"});
        }
        settle("near");  // by then the stream has tried and failed to read the folder
        ASSERT_TRUE(waitFor([&] {
            ::chmod(directory_.path(closed).c_str(), 0);
            ::chmod(directory_.path(closed).c_str(), 0755);
            return reports_.has(directory_.path("far/links"));
        }));
        reports_.forget();
    }
}

TEST_F(InotifyEventStreamLimitsTest, WhenWatchesRunOutTheRestWorksAndTheLogSaysSoOnce) {
    directory_.createDirectories("links/a/below");
    directory_.createDirectories("links/b/below");
    beforeWatching([](const std::string& path) { return path.ends_with("/below") ? ENOSPC : 0; });
    watchSettled({"links"});
    directory_.write("links/a/below/x");
    directory_.write("links/a/x");
    EXPECT_TRUE(isReported("links/a"));
    directory_.write("links/b/x");
    EXPECT_TRUE(isReported("links/b"));
    EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("max_user_watches")));
}

TEST_F(InotifyEventStreamLimitsTest, ADirectoryThatTheSystemRefusesForAMomentIsWatchedLater) {
    directory_.createDirectories("links/a/b/c");
    std::atomic<int> refused = 0;
    beforeWatching([&](const std::string& path) {
        return path == directory_.path("links/a") && ++refused == 1 ? ENOMEM : 0;
    });
    watch({"links"});
    settle("links");
    directory_.write("links/a/b/c/x");
    EXPECT_TRUE(isReported("links/a/b/c"));
    EXPECT_EQ(refused, 2);
}

TEST_F(InotifyEventStreamLimitsTest, AFolderThatTheSystemRefusesForAMomentIsWatchedLater) {
    directory_.createDirectories("links/a");
    std::atomic<int> refused = 0;
    beforeWatching([&](const std::string& path) {
        // The first watch belongs to the path to the folder.
        return path == directory_.path("links") && ++refused == 2 ? ENOMEM : 0;
    });
    watch({"links"});
    directory_.write("links/a/x");
    EXPECT_TRUE(isReported("links/a"));
}

TEST_F(InotifyEventStreamLimitsTest,
       ADirectoryThatCameWhileTheSystemRefusedIsReportedWithAllBelow) {
    directory_.createDirectories("links");
    directory_.createDirectories("outside/deep/deeper");
    watchSettled({"links"});
    std::atomic<int> refused = 0;
    beforeWatching([&](const std::string& path) {
        return path == directory_.path("links/came") && ++refused == 1 ? ENOMEM : 0;
    });
    directory_.move("outside", "links/came");
    for (const auto* name : {"links/came", "links/came/deep", "links/came/deep/deeper"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
    EXPECT_EQ(refused, 2);
}

TEST_F(InotifyEventStreamLimitsTest, ALaterFolderGetsItsWatchBeforeTheTreeOfAnEarlierOne) {
    directory_.createDirectories("huge/a/b/c");
    directory_.createDirectories("links");
    std::atomic<int> watches = 0;
    beforeWatching([&](const std::string& path) {
        const bool isOfATree =
            path.starts_with(directory_.path("huge/")) || path == directory_.path("links");
        return isOfATree && path != directory_.path("links") && ++watches > 1 ? ENOSPC : 0;
    });
    watch({"huge", "links"});
    settle("links");
    directory_.write("links/x");
    EXPECT_TRUE(isReported("links"));
}

TEST_F(InotifyEventStreamLimitsTest, AnOverflowIsReportedAndTheTreesAreWalkedAgain) {
    directory_.createDirectories("links/busy");
    directory_.createDirectories("links/quiet/deep");
    directory_.createDirectories("links/gone/deep");
    directory_.createDirectories("links/moving/deep");
    stream_ = make({directory_.path("links")}, 1ms);
    stream_->setDispatchQueue(gate_);
    EXPECT_TRUE(stream_->start());
    settle("links");

    auto closed = gate_.close();
    directory_.write("links/first");
    ASSERT_TRUE(waitFor([&] { return gate_.wasUsed(); }));
    // The stream's thread is blocked in its delivery and reads no events.
    overflow("links/busy");
    directory_.createDirectories("links/new/newer");
    directory_.write("links/quiet/deep/x.webloc");
    directory_.remove("links/gone");
    directory_.move("links/moving", "links/moved");
    closed.unlock();

    EXPECT_TRUE(waitFor([this] {
        const auto batches = reports_.batches();
        return std::any_of(batches.begin(), batches.end(), [this](const auto& batch) {
            return batch[0] == DirectoryEvent{directory_.path("links"), mustScanSubDirs};
        });
    }));
    for (const auto* name : {"links/busy", "links/new", "links/new/newer", "links/quiet/deep"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
    settle("links");
    for (const auto* name : {"links/new/newer", "links/quiet/deep", "links/moved/deep"}) {
        directory_.write(std::string(name) + "/y.webloc");
        EXPECT_TRUE(isReported(name)) << name;
    }
}

TEST_F(InotifyEventStreamLimitsTest, ADirectoryMovedWhileEventsAreLostIsReportedWithAllBelowIt) {
    directory_.createDirectories("links/busy");
    directory_.createDirectories("links/moving/deep/deeper");
    directory_.createDirectories("outside/deep/deeper");
    watchSettled({"links"});
    std::atomic<bool> done = false;
    beforeWatching([&](const std::string& path) {
        if (path == directory_.path("links/first") && !done.exchange(true)) {
            overflow("links/busy");
            directory_.move("links/moving", "links/moved");
            directory_.move("outside", "links/came");
        }
        return 0;
    });
    directory_.createDirectories("links/first");
    for (const auto* name : {"links/moved/deep/deeper", "links/came/deep/deeper"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
}

TEST_F(InotifyEventStreamLimitsTest, AnOverflowDuringTheFirstWalkLosesNothing) {
    directory_.createDirectories("links/busy");
    directory_.createDirectories("links/early/old");
    directory_.createDirectories("links/late/below");
    directory_.createDirectories("outside/deep/deeper");
    std::atomic<bool> done = false;
    beforeWatching([&](const std::string& path) {
        if (path == directory_.path("links/late/below") && !done.exchange(true)) {
            overflow("links/busy");
            directory_.write("links/early/old/x");
            directory_.move("outside", "links/late/below/came");
        }
        return 0;
    });
    watch({"links"});
    for (const auto* name :
         {"links/early/old", "links/late/below/came", "links/late/below/came/deep/deeper"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
    settle("links");
    directory_.write("links/late/below/came/deep/deeper/x");
    EXPECT_TRUE(isReported("links/late/below/came/deep/deeper"));
}

TEST_F(InotifyEventStreamLimitsTest, AnOverflowOnTheWayToAFolderLosesNothing) {
    directory_.createDirectories("way");
    directory_.createDirectories("links");
    watchSettled({"links", "way/missing"});
    std::atomic<bool> done = false;
    beforeWatching([&](const std::string& path) {
        if (path == directory_.path("links/first") && !done.exchange(true)) {
            overflow("way");
            directory_.createDirectories("way/missing/a");
        }
        return 0;
    });
    directory_.createDirectories("links/first");
    EXPECT_TRUE(isReported("way/missing"));
    EXPECT_TRUE(isReported("way/missing/a"));
}

TEST_F(InotifyEventStreamLimitsTest, StartingAndStoppingManyTimesLeavesNothingBehind) {
    directory_.createDirectories("links/a/b");
    const auto before = openDescriptors();
    for (int i = 0; i < 50; ++i) {
        watch({"links"});
        if (i % 2 == 0) {
            settle("links");
        }
        stream_->stop();
        stream_->invalidate();
        stream_.reset();
    }
    EXPECT_TRUE(waitFor([] { return threadsNamed(streamThread) == 0; }));
    EXPECT_TRUE(waitFor([&] { return openDescriptors() <= before; }));
}

TEST_F(InotifyEventStreamLimitsTest, WithoutDescriptorsThereIsNoStream) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    for (rlim_t room = 0; room < 3; ++room) {
        const int lowestFree = ::dup(STDERR_FILENO);
        ::close(lowestFree);
        const rlimit few{static_cast<rlim_t>(lowestFree) + room, before.rlim_max};
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
        const auto stream = make({directory_.path()}, 1ms);
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
        EXPECT_EQ(stream, nullptr) << room;
    }
}

}  // namespace
}  // namespace glintmark::platform
