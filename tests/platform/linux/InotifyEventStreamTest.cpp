#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <tuple>

#include "platform/Log.h"
#include "platform/linux/InotifyEventStream.h"
#include "platform/linux/InotifyEventStreamFactory.h"
#include "platform/linux/ThreadPoolQueue.h"
#include "tests/platform/linux/ProcessState.h"
#include "tests/platform/linux/TemporaryDirectory.h"
#include "tests/platform/linux/Unprivileged.h"
#include "tests/platform/linux/Waiting.h"

namespace {

/// What the test does to calls of inotify_add_watch(2).
struct WatchHook {
    std::mutex mutex;
    std::function<int(const std::string& path)> beforeAdding;  // an error number, or 0
};

WatchHook watchHook;

}  // namespace

// Stands before the C library's own, so that a test can act just before a directory is watched.
extern "C" int inotify_add_watch(int descriptor, const char* path, std::uint32_t mask) noexcept {
    std::function<int(const std::string&)> hook;
    {
        const std::lock_guard lock(watchHook.mutex);
        hook = watchHook.beforeAdding;
    }
    if (const int error = hook ? hook(path) : 0; error != 0) {
        errno = error;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_inotify_add_watch, descriptor, path, mask));
}

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr const char* streamThread = "event-stream";

class DebugLog : public Log {
public:
    void write(std::string_view /*message*/) override { ADD_FAILURE() << "not one of its lines"; }
    void debug(std::string_view message) override {
        const std::lock_guard lock(mutex_);
        lines_.emplace_back(message);
    }
    std::vector<std::string> lines() {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

/// What the handler has been told.
class Reports {
public:
    using Batch = std::vector<DirectoryEvent>;

    EventStream::Handler handler() {
        return [this](std::span<const DirectoryEvent> events) {
            const std::lock_guard lock(mutex_);
            batches_.emplace_back(events.begin(), events.end());
        };
    }

    std::vector<Batch> batches() {
        const std::lock_guard lock(mutex_);
        return batches_;
    }

    std::multiset<std::string> paths() {
        std::multiset<std::string> paths;
        for (const auto& batch : batches()) {
            for (const auto& event : batch) {
                paths.insert(event.path);
            }
        }
        return paths;
    }

    bool has(const std::string& path) { return paths().contains(path); }

    void forget() {
        const std::lock_guard lock(mutex_);
        batches_.clear();
    }

private:
    std::mutex mutex_;
    std::vector<Batch> batches_;
};

class InotifyEventStreamTest : public testing::Test {
protected:
    ~InotifyEventStreamTest() override {
        stream_.reset();
        const std::lock_guard lock(watchHook.mutex);
        watchHook.beforeAdding = nullptr;
    }

    void TearDown() override {
        stream_.reset();
        EXPECT_TRUE(waitFor([] { return threadsNamed(streamThread) == 0; }));
    }

    std::unique_ptr<EventStream> make(const std::vector<std::string>& folders,
                                      std::chrono::nanoseconds latency) {
        return InotifyEventStreamFactory(log_).create(folders, latency, reports_.handler());
    }

    /// Watches the folders, given relative to the test's directory, until the test's end.
    void watch(const std::vector<std::string>& names, std::chrono::nanoseconds latency = 5ms) {
        std::vector<std::string> folders;
        for (const auto& name : names) {
            folders.push_back(directory_.path(name));
        }
        stream_ = make(folders, latency);
        ASSERT_NE(stream_, nullptr);
        stream_->setDispatchQueue(queue_);
        EXPECT_TRUE(stream_->start());
    }

    /// The same, and waits until all that is there is watched, so that nothing counts as a change
    /// but what the test does from here on.
    void watchSettled(const std::vector<std::string>& names,
                      std::chrono::nanoseconds latency = 5ms) {
        watch(names, latency);
        settle(names.front());
    }

    /// Waits until the stream has gone through everything that has happened so far.
    void settle(const std::string& name) {
        static int count = 0;
        const auto probe = name + "/settle-" + std::to_string(++count);
        // A new directory is reported after those that waited before it have been walked.
        directory_.createDirectories(probe);
        EXPECT_TRUE(waitFor([&] { return reports_.has(directory_.path(probe)); }));
        directory_.remove(probe);
        reports_.forget();
    }

    bool isReported(const std::string& name) {
        const auto path = name.starts_with('/') ? name : directory_.path(name);
        return waitFor([&] { return reports_.has(path); });
    }

    void beforeWatching(std::function<int(const std::string&)> hook) {
        const std::lock_guard lock(watchHook.mutex);
        watchHook.beforeAdding = std::move(hook);
    }

    TemporaryDirectory directory_;
    DebugLog log_;
    Reports reports_;
    ThreadPoolQueue queue_{"stream-queue", 1};
    std::unique_ptr<EventStream> stream_;
};

TEST_F(InotifyEventStreamTest, ANewFileReportsItsDirectory) {
    directory_.createDirectories("links/deep/deeper");
    watchSettled({"links"});
    directory_.createFile("links/deep/deeper/a.webloc");
    EXPECT_TRUE(isReported("links/deep/deeper"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/deep/deeper")));
    EXPECT_EQ(reports_.batches()[0][0].flags, 0U);
}

TEST_F(InotifyEventStreamTest, EveryWayInWhichANameAppearsIsReported) {
    directory_.createDirectories("links/linked");
    directory_.createDirectories("links/hard");
    directory_.createDirectories("links/moved");
    directory_.createDirectories("links/renamed");
    directory_.createFile("links/renamed/before");
    directory_.createFile("outside");
    watchSettled({"links"});
    directory_.createLink("/nowhere", "links/linked/a");
    EXPECT_TRUE(isReported("links/linked"));
    ASSERT_EQ(::link(directory_.path("outside").c_str(), directory_.path("links/hard/a").c_str()),
              0);
    EXPECT_TRUE(isReported("links/hard"));
    directory_.move("outside", "links/moved/a");
    EXPECT_TRUE(isReported("links/moved"));
    directory_.move("links/renamed/before", "links/renamed/after");
    EXPECT_TRUE(isReported("links/renamed"));
}

TEST_F(InotifyEventStreamTest, WritingAndRemovingFilesIsNoChange) {
    directory_.createDirectories("links");
    directory_.createFile("links/a");
    watchSettled({"links"});
    directory_.createFile("links/a", "more");
    directory_.remove("links/a");
    settle("links");
    EXPECT_THAT(reports_.paths(), IsEmpty());
}

TEST_F(InotifyEventStreamTest, ChangesWithinTheLatencyArriveAsOneCallWithEachDirectoryOnce) {
    directory_.createDirectories("links/one");
    directory_.createDirectories("links/two");
    watchSettled({"links"}, 300ms);
    for (int i = 0; i < 20; ++i) {
        directory_.createFile("links/one/" + std::to_string(i));
        directory_.createFile("links/two/" + std::to_string(i));
    }
    EXPECT_TRUE(isReported("links/two"));
    const auto batches = reports_.batches();
    ASSERT_THAT(batches, SizeIs(1));
    EXPECT_THAT(batches[0], ElementsAre(DirectoryEvent{directory_.path("links/one"), 0},
                                        DirectoryEvent{directory_.path("links/two"), 0}));
}

TEST_F(InotifyEventStreamTest, ABatchIsNotDeliveredBeforeItsLatencyIsOver) {
    directory_.createDirectories("links");
    watchSettled({"links"}, 100ms);
    const auto before = std::chrono::steady_clock::now();
    directory_.createFile("links/a");
    EXPECT_TRUE(isReported("links"));
    EXPECT_GE(std::chrono::steady_clock::now() - before, 100ms);
}

TEST_F(InotifyEventStreamTest, WhatWasThereBeforeIsNotReported) {
    directory_.createDirectories("links/a/b/c");
    directory_.createFile("links/a/b/c/old.webloc");
    struct stat newest {};
    ASSERT_EQ(::stat(directory_.path("links/a/b/c").c_str(), &newest), 0);
    ASSERT_TRUE(waitFor([&] {  // what is as new as the stream counts as changed
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
        return std::tuple(now.tv_sec, now.tv_nsec) >
               std::tuple(newest.st_ctim.tv_sec, newest.st_ctim.tv_nsec);
    }));
    watch({"links"});
    directory_.createFile("links/a/new");
    EXPECT_TRUE(isReported("links/a"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/a")));
}

TEST_F(InotifyEventStreamTest, ChangesBetweenCreationAndStartAreDeliveredOnceStarted) {
    directory_.createDirectories("links");
    stream_ = make({directory_.path("links")}, 1ms);
    directory_.createFile("links/a");
    stream_->setDispatchQueue(queue_);
    EXPECT_TRUE(stream_->start());
    EXPECT_TRUE(isReported("links"));
}

TEST_F(InotifyEventStreamTest, WhatChangesBeforeTheWalkHasComeToItIsReportedWhenItDoes) {
    directory_.createDirectories("links/a/old");
    directory_.createDirectories("outside/tree");
    std::atomic<bool> done = false;
    beforeWatching([&](const std::string& path) {
        if (path == directory_.path("links/a") && !done.exchange(true)) {
            directory_.createDirectories("links/a/new/newer");
            directory_.move("outside", "links/a/moved");
            directory_.createFile("links/a/old/x.webloc");
        }
        return 0;
    });
    watch({"links"});
    for (const auto* name : {"links/a", "links/a/new", "links/a/new/newer", "links/a/moved",
                             "links/a/moved/tree", "links/a/old"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
}

TEST_F(InotifyEventStreamTest, ANewDirectoryIsReportedWithAllBelowIt) {
    directory_.createDirectories("links");
    watchSettled({"links"});
    directory_.createDirectories("links/a/b/c/d");
    directory_.createFile("links/a/b/c/d/x.webloc");
    for (const auto* name : {"links", "links/a", "links/a/b", "links/a/b/c", "links/a/b/c/d"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
}

TEST_F(InotifyEventStreamTest, WhatIsMadeInANewDirectoryJustBeforeItIsWatchedIsNotLost) {
    directory_.createDirectories("links");
    watchSettled({"links"});
    beforeWatching([this](const std::string& path) {
        if (path == directory_.path("links/a")) {
            directory_.createDirectories("links/a/b");
            directory_.createFile("links/a/b/x.webloc");
        }
        return 0;
    });
    directory_.createDirectories("links/a");
    EXPECT_TRUE(isReported("links/a"));
    EXPECT_TRUE(isReported("links/a/b"));
}

TEST_F(InotifyEventStreamTest, AFullTreeMovedInIsReportedAndWatched) {
    directory_.createDirectories("links");
    directory_.createDirectories("outside/a/b");
    directory_.createFile("outside/a/b/x.webloc");
    watchSettled({"links"});
    directory_.move("outside", "links/inside");
    for (const auto* name : {"links/inside", "links/inside/a", "links/inside/a/b"}) {
        EXPECT_TRUE(isReported(name)) << name;
    }
    reports_.forget();
    directory_.createFile("links/inside/a/b/y.webloc");
    EXPECT_TRUE(isReported("links/inside/a/b"));
}

TEST_F(InotifyEventStreamTest, ADirectoryMovedWithinATreeIsWatchedUnderItsNewPath) {
    directory_.createDirectories("links/a/deep/deeper");
    directory_.createDirectories("links/b");
    watchSettled({"links"});
    directory_.move("links/a", "links/b/c");
    EXPECT_TRUE(isReported("links/b/c"));
    reports_.forget();
    directory_.createFile("links/b/c/deep/deeper/x.webloc");
    EXPECT_TRUE(isReported("links/b/c/deep/deeper"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/b/c/deep/deeper")));
}

TEST_F(InotifyEventStreamTest, ManyMovesInARowLeaveTheRightPaths) {
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
    directory_.createFile("links/y/a/x/file");
    EXPECT_TRUE(isReported("links/y/a/x"));
    directory_.createFile("links/y/file");
    EXPECT_TRUE(isReported("links/y"));
    directory_.createFile("links/b/file");
    EXPECT_TRUE(isReported("links/b"));
}

TEST_F(InotifyEventStreamTest, TwoDirectoriesThatChangePlacesKeepTheirContents) {
    directory_.createDirectories("links/a/in-a");
    directory_.createDirectories("links/b/in-b");
    watchSettled({"links"});
    constexpr unsigned exchange = 2;  // RENAME_EXCHANGE of renameat2(2)
    ASSERT_EQ(::syscall(SYS_renameat2, -1, directory_.path("links/a").c_str(), -1,
                        directory_.path("links/b").c_str(), exchange),
              0);
    EXPECT_TRUE(isReported("links/a"));
    settle("links");
    directory_.createFile("links/a/in-b/x");
    EXPECT_TRUE(isReported("links/a/in-b"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/a/in-b")));
}

TEST_F(InotifyEventStreamTest, ADirectoryMovedOutIsForgotten) {
    directory_.createDirectories("links/a/b");
    directory_.createDirectories("outside");
    watchSettled({"links"});
    directory_.move("links/a", "outside/a");
    directory_.createFile("outside/a/b/x.webloc");
    directory_.createFile("links/y.webloc");
    EXPECT_TRUE(isReported("links"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links")));
}

TEST_F(InotifyEventStreamTest, ADirectoryMovedOutAndBackIsWatchedWithWhatCameMeanwhile) {
    directory_.createDirectories("links/a/b");
    watchSettled({"links"});
    directory_.move("links/a", "outside");
    directory_.createDirectories("outside/b/new");
    directory_.move("outside", "links/back");
    EXPECT_TRUE(isReported("links/back/b/new"));
    reports_.forget();
    directory_.createFile("links/back/b/new/x.webloc");
    EXPECT_TRUE(isReported("links/back/b/new"));
}

TEST_F(InotifyEventStreamTest, ADeletedDirectoryThatIsMadeAgainIsWatchedAgain) {
    directory_.createDirectories("links/a/b");
    watchSettled({"links"});
    for (int i = 0; i < 3; ++i) {
        directory_.remove("links/a");
        directory_.createDirectories("links/a/b");
        EXPECT_TRUE(isReported("links/a/b"));
        settle("links");
        directory_.createFile("links/a/b/x.webloc");
        EXPECT_TRUE(isReported("links/a/b"));
        settle("links");
    }
}

TEST_F(InotifyEventStreamTest, AMissingFolderIsTakenUpWhenItAppears) {
    watch({"far/away/links"});
    directory_.createDirectories("far/away");
    directory_.createDirectories("far/away/links/a");
    directory_.createFile("far/away/links/a/x.webloc");
    EXPECT_TRUE(isReported("far/away/links"));
    EXPECT_TRUE(isReported("far/away/links/a"));
    settle("far/away/links");
    directory_.createFile("far/away/links/a/y.webloc");
    EXPECT_TRUE(isReported("far/away/links/a"));
}

TEST_F(InotifyEventStreamTest, AMissingFolderMovedInWithItsParentsIsTakenUp) {
    directory_.createDirectories("prepared/away/links/a");
    watch({"far/away/links"});
    directory_.move("prepared", "far");
    EXPECT_TRUE(isReported("far/away/links"));
    EXPECT_TRUE(isReported("far/away/links/a"));
}

TEST_F(InotifyEventStreamTest, AFolderThatIsDeletedAndMadeAgainIsTakenUpAgain) {
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

TEST_F(InotifyEventStreamTest, AFolderThatIsReplacedIsTakenUpAndTheOldOneForgotten) {
    directory_.createDirectories("links/old");
    directory_.createDirectories("prepared/new");
    watchSettled({"links"});
    directory_.move("links", "before");
    directory_.move("prepared", "links");
    EXPECT_TRUE(isReported("links"));
    EXPECT_TRUE(isReported("links/new"));
    settle("links");
    directory_.createFile("before/old/x.webloc");
    directory_.createFile("links/new/x.webloc");
    EXPECT_TRUE(isReported("links/new"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/new")));
}

TEST_F(InotifyEventStreamTest, AFolderThatIsPutBackIsTakenUpWithWhatCameMeanwhile) {
    directory_.createDirectories("far/links/a");
    watchSettled({"far/links"});
    directory_.move("far", "aside");
    directory_.createDirectories("aside/links/a/new");
    directory_.move("aside", "far");
    EXPECT_TRUE(isReported("far/links/a/new"));
    settle("far/links");
    directory_.createFile("far/links/a/new/x.webloc");
    EXPECT_TRUE(isReported("far/links/a/new"));
}

TEST_F(InotifyEventStreamTest, AFileInTheFoldersPlaceGivesWayToTheFolder) {
    directory_.createFile("links");
    watch({"links"});
    directory_.remove("links");
    directory_.createDirectories("links");
    EXPECT_TRUE(isReported("links"));
}

TEST_F(InotifyEventStreamTest, AFolderThatIsALinkIsWatchedUnderTheLinksPath) {
    directory_.createDirectories("real/a");
    directory_.createLink("real", "links");
    watchSettled({"links"});
    directory_.createFile("real/a/x.webloc");
    EXPECT_TRUE(isReported("links/a"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/a")));
}

TEST_F(InotifyEventStreamTest, AFolderIsTakenUpWhenItsLinkLeadsSomewhereElse) {
    directory_.createDirectories("one/a");
    directory_.createDirectories("two/b");
    directory_.createLink("one", "links");
    watchSettled({"links"});
    directory_.createLink(directory_.path("two"), "prepared");
    directory_.move("prepared", "links");
    EXPECT_TRUE(isReported("links/b"));
    settle("links");
    directory_.createFile("two/b/x.webloc");
    EXPECT_TRUE(isReported("links/b"));
}

TEST_F(InotifyEventStreamTest, AFolderIsTakenUpWhenWhatItsLinkLeadsToAppears) {
    directory_.createLink("far/../far/./away", "links");
    watch({"links"});
    directory_.createDirectories("far/away/a");
    EXPECT_TRUE(isReported("links/a"));
}

TEST_F(InotifyEventStreamTest, LinksThatLeadInACircleDoNoHarm) {
    directory_.createLink("b", "a");
    directory_.createLink("a", "b");
    watch({"a/links"});
    directory_.remove("a");
    directory_.createDirectories("a/links");
    EXPECT_TRUE(isReported("a/links"));
}

TEST_F(InotifyEventStreamTest, LinksBelowAFolderAreNotFollowed) {
    directory_.createDirectories("links/a");
    directory_.createDirectories("real/b");
    directory_.createLink(directory_.path("real"), "links/link");
    watchSettled({"links"});
    directory_.createLink(directory_.path("real"), "links/a/link");
    EXPECT_TRUE(isReported("links/a"));
    settle("links");
    directory_.createFile("real/b/x.webloc");
    directory_.createFile("real/x.webloc");
    directory_.createFile("links/x.webloc");
    EXPECT_TRUE(isReported("links"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links")));
}

TEST_F(InotifyEventStreamTest, AChangeIsReportedByEachSpellingOfEachFolderAboveIt) {
    directory_.createDirectories("links/a/b");
    directory_.createLink("links/a", "shortcut");
    watchSettled({"links", "links/a", "links/a/", "shortcut", "links/../links"});
    directory_.createFile("links/a/b/x.webloc");
    EXPECT_TRUE(isReported("shortcut/b"));
    EXPECT_THAT(reports_.paths(), testing::UnorderedElementsAre(
                                      directory_.path("links/a/b"), directory_.path("shortcut/b"),
                                      directory_.path("links/../links/a/b")));
    reports_.forget();
    directory_.createFile("links/a/x.webloc");
    EXPECT_TRUE(isReported("shortcut"));
    EXPECT_THAT(reports_.paths(),
                testing::UnorderedElementsAre(
                    directory_.path("links/a"), directory_.path("links/a/"),
                    directory_.path("shortcut"), directory_.path("links/../links/a")));
}

TEST_F(InotifyEventStreamTest, AFolderInAnotherOneIsWatchedOnWhenItIsMovedAway) {
    directory_.createDirectories("links/a/b");
    watchSettled({"links", "links/a"});
    directory_.move("links/a", "links/c");
    EXPECT_TRUE(isReported("links/c"));
    settle("links");
    directory_.createFile("links/c/b/x.webloc");
    EXPECT_TRUE(isReported("links/c/b"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/c/b")));
}

TEST_F(InotifyEventStreamTest, PathsAreBytes) {
    const std::string name = "links/\xFF\n%s\"\\ \xC3";
    directory_.createDirectories(name);
    watchSettled({"links", name});
    directory_.createFile(name + "/x");
    EXPECT_TRUE(isReported(name));
    directory_.createDirectories(name + "/\xFE");
    EXPECT_TRUE(isReported(name + "/\xFE"));
}

TEST_F(InotifyEventStreamTest, ADirectoryThatMayNotBeReadIsSkipped) {
    directory_.createDirectories("links/closed/inner");
    directory_.createDirectories("links/open");
    ASSERT_EQ(::chmod(directory_.path("links/closed").c_str(), 0), 0);
    ASSERT_EQ(::chmod(directory_.path().c_str(), 0755), 0);
    {
        const Unprivileged unprivileged;
        watch({"links"});
    }
    ASSERT_TRUE(waitFor([this] {
        directory_.createFile("links/open/x");
        directory_.remove("links/open/x");
        return reports_.has(directory_.path("links/open"));
    }));
    ASSERT_EQ(::chmod(directory_.path("links/closed").c_str(), 0755), 0);
}

TEST_F(InotifyEventStreamTest, AFolderThatMayNotBeReadIsTakenUpWhenItMay) {
    directory_.createDirectories("far/links/a");
    directory_.createDirectories("near");
    ASSERT_EQ(::chmod(directory_.path().c_str(), 0755), 0);
    for (const auto* closed : {"far", "far/links"}) {
        ASSERT_EQ(::chmod(directory_.path(closed).c_str(), 0), 0);
        {
            const Unprivileged unprivileged;
            watch({"near", "far/links"});
        }
        settle("near");  // the first look found the folder closed
        ASSERT_TRUE(waitFor([&] {
            ::chmod(directory_.path(closed).c_str(), 0);
            ::chmod(directory_.path(closed).c_str(), 0755);
            return reports_.has(directory_.path("far/links"));
        }));
        reports_.forget();
    }
}

TEST_F(InotifyEventStreamTest, WhenWatchesRunOutTheRestWorksAndTheLogSaysSoOnce) {
    directory_.createDirectories("links/a/below");
    directory_.createDirectories("links/b/below");
    beforeWatching([](const std::string& path) { return path.ends_with("/below") ? ENOSPC : 0; });
    watchSettled({"links"});
    directory_.createFile("links/a/below/x");
    directory_.createFile("links/a/x");
    EXPECT_TRUE(isReported("links/a"));
    directory_.createFile("links/b/x");
    EXPECT_TRUE(isReported("links/b"));
    EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("max_user_watches")));
}

TEST_F(InotifyEventStreamTest, ALaterFolderGetsItsWatchBeforeTheTreeOfAnEarlierOne) {
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
    directory_.createFile("links/x");
    EXPECT_TRUE(isReported("links"));
}

/// Lets no work through until it is opened, and holds back whoever submits some.
class GateQueue : public DispatchQueue {
public:
    explicit GateQueue(DispatchQueue& target) : target_(target) {}

    void async(Work work) override {
        waiting_ = true;
        const std::lock_guard lock(gate_);
        target_.async(std::move(work));
    }
    void asyncAfter(std::chrono::nanoseconds delay, Work work) override {
        target_.asyncAfter(delay, std::move(work));
    }

    std::unique_lock<std::mutex> close() { return std::unique_lock(gate_); }
    bool isWaiting() const { return waiting_; }

private:
    DispatchQueue& target_;
    std::mutex gate_;
    std::atomic<bool> waiting_ = false;
};

TEST_F(InotifyEventStreamTest, AnOverflowIsReportedAndTheTreesAreWalkedAgain) {
    directory_.createDirectories("links/busy");
    directory_.createDirectories("links/quiet/deep");
    directory_.createDirectories("links/gone/deep");
    directory_.createDirectories("links/moving/deep");
    GateQueue gate(queue_);
    stream_ = make({directory_.path("links")}, 1ms);
    stream_->setDispatchQueue(gate);
    EXPECT_TRUE(stream_->start());
    settle("links");

    auto closed = gate.close();
    directory_.createFile("links/first");
    ASSERT_TRUE(waitFor([&] { return gate.isWaiting(); }));
    // The stream's thread hangs in its delivery and reads nothing.
    for (int i = 0; i < 20'000; ++i) {  // fs.inotify.max_queued_events is 16384 by default
        directory_.move(i == 0 ? "links/first" : "links/busy/" + std::to_string(i - 1),
                        "links/busy/" + std::to_string(i));
    }
    directory_.createDirectories("links/new/newer");
    directory_.createFile("links/quiet/deep/x.webloc");
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
        directory_.createFile(std::string(name) + "/y.webloc");
        EXPECT_TRUE(isReported(name)) << name;
    }
}

/// A mount below the test's directory, for its own lifetime. Mounting takes rights that not every
/// test run has.
class Mount {
public:
    Mount(std::string source, std::string target, const char* type, unsigned long flags)
        : target_(std::move(target)),
          isThere_(::mount(source.c_str(), target_.c_str(), type, flags, nullptr) == 0) {}
    ~Mount() { unmount(); }

    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;

    explicit operator bool() const { return isThere_; }
    void unmount() {
        if (std::exchange(isThere_, false)) {
            EXPECT_EQ(::umount2(target_.c_str(), MNT_DETACH), 0);
        }
    }

private:
    std::string target_;
    bool isThere_;
};

TEST_F(InotifyEventStreamTest, ADirectoryMountedInASecondPlaceIsReportedInBoth) {
    directory_.createDirectories("links/mount");
    directory_.createDirectories("real/a");
    const Mount mount(directory_.path("real"), directory_.path("links/mount"), nullptr, MS_BIND);
    if (!mount) {
        GTEST_SKIP() << "may not mount";
    }
    watchSettled({"links", "real"});
    directory_.createFile("links/mount/a/x.webloc");
    EXPECT_TRUE(isReported("links/mount/a"));
    EXPECT_TRUE(isReported("real/a"));
}

TEST_F(InotifyEventStreamTest, ADirectoryMountedBelowItselfEndsTheWalk) {
    directory_.createDirectories("links/a/mount");
    const Mount mount(directory_.path("links"), directory_.path("links/a/mount"), nullptr, MS_BIND);
    if (!mount) {
        GTEST_SKIP() << "may not mount";
    }
    watchSettled({"links"});
    directory_.createFile("links/a/x");
    EXPECT_TRUE(isReported("links/a"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/a")));
}

TEST_F(InotifyEventStreamTest, AnUnmountedFileSystemUncoversWhatItHid) {
    directory_.createDirectories("links/mount");
    Mount mount("none", directory_.path("links/mount"), "tmpfs", 0);
    if (!mount) {
        GTEST_SKIP() << "may not mount";
    }
    directory_.createDirectories("links/mount/a");
    watchSettled({"links"});
    directory_.createFile("links/mount/a/x.webloc");
    EXPECT_TRUE(isReported("links/mount/a"));
    mount.unmount();
    EXPECT_TRUE(isReported("links/mount"));
    settle("links");
    directory_.createFile("links/mount/x");
    EXPECT_TRUE(isReported("links/mount"));
}

TEST_F(InotifyEventStreamTest, StopAndInvalidateEndTheReports) {
    directory_.createDirectories("links");
    watchSettled({"links"});
    stream_->stop();
    stream_->invalidate();
    directory_.createFile("links/a");
    EXPECT_TRUE(waitFor([] { return threadsNamed(streamThread) == 0; }));
    std::promise<void> drained;
    queue_.async([&] { drained.set_value(); });
    drained.get_future().wait();
    EXPECT_THAT(reports_.paths(), IsEmpty());
}

TEST_F(InotifyEventStreamTest, InvalidateWaitsForARunningHandler) {
    directory_.createDirectories("links");
    std::promise<void> entered;
    std::atomic<bool> left = false;
    std::promise<void> release;
    auto stream = InotifyEventStreamFactory(log_).create(std::vector{directory_.path("links")}, 1ms,
                                                         [&](auto) {
                                                             entered.set_value();
                                                             release.get_future().wait();
                                                             left = true;
                                                         });
    stream->setDispatchQueue(queue_);
    stream->start();
    directory_.createFile("links/a");
    entered.get_future().wait();
    stream->stop();
    ThreadPoolQueue helper("helper", 1);
    helper.async([&] { release.set_value(); });
    stream->invalidate();
    EXPECT_TRUE(left);
}

TEST_F(InotifyEventStreamTest, TheHandlerMayEndItsOwnStream) {
    directory_.createDirectories("links");
    std::promise<void> ended;
    std::unique_ptr<EventStream> stream = InotifyEventStreamFactory(log_).create(
        std::vector{directory_.path("links")}, 1ms, [&](auto) {
            stream->stop();
            stream->invalidate();
            stream.reset();
            ended.set_value();
        });
    stream->setDispatchQueue(queue_);
    stream->start();
    directory_.createFile("links/a");
    ended.get_future().wait();
}

TEST_F(InotifyEventStreamTest, ADeliveryThatWaitsInTheQueueDoesNotBeginAfterInvalidate) {
    directory_.createDirectories("links");
    watchSettled({"links"}, 1ms);
    std::promise<void> release;
    std::promise<void> held;
    queue_.async([&] {
        held.set_value();
        release.get_future().wait();
    });
    held.get_future().wait();
    GateQueue gate(queue_);  // tells when the delivery has been queued
    stream_ = make({directory_.path("links")}, 1ms);
    stream_->setDispatchQueue(gate);
    stream_->start();
    directory_.createFile("links/a");
    ASSERT_TRUE(waitFor([&] { return gate.isWaiting(); }));
    stream_->stop();
    stream_->invalidate();
    release.set_value();
    std::promise<void> drained;
    queue_.async([&] { drained.set_value(); });
    drained.get_future().wait();
    EXPECT_THAT(reports_.paths(), IsEmpty());
}

TEST_F(InotifyEventStreamTest, AStreamMayBeStartedAgain) {
    directory_.createDirectories("links");
    watchSettled({"links"});
    stream_->stop();
    directory_.createDirectories("links/while-stopped");
    EXPECT_TRUE(stream_->start());
    settle("links");
    directory_.createFile("links/while-stopped/x");
    EXPECT_TRUE(isReported("links/while-stopped"));
}

TEST_F(InotifyEventStreamTest, StartingAndStoppingManyTimesLeavesNothingBehind) {
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

TEST_F(InotifyEventStreamTest, WithoutDescriptorsThereIsNoStream) {
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

TEST_F(InotifyEventStreamTest, AStreamWithoutAQueueDoesNotStart) {
    const auto stream = make({directory_.path()}, 1ms);
    EXPECT_FALSE(stream->start());
}

TEST_F(InotifyEventStreamTest, FoldersThatAreNoAbsolutePathsAndNoFoldersAtAllAreHarmless) {
    directory_.createDirectories("links");
    watch({"links"});
    const auto empty = make({}, 1ms);
    const auto relative = make({"", "relative/folder"}, 1ms);
    EXPECT_NE(empty, nullptr);
    EXPECT_NE(relative, nullptr);
    settle("links");
}

}  // namespace
}  // namespace glintmark::platform
