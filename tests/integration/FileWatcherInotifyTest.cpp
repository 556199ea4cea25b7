#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>

#include "tests/integration/FileWatcherInotifyFixture.h"
#include "tests/linux/Unprivileged.h"

// The watcher over real queues, timers, files and inotify.

namespace glintmark {
namespace {

using platform::inotifyWatches;
using platform::openDescriptors;
using platform::threadsNamed;
using platform::waitUntil;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

constexpr const char* streamThread = "event-stream";

TEST_F(FileWatcherInotifyTest, AFileIsReportedOnceThoughStreamAndPollFindIt) {
    home().write("Desktop/old.webloc");
    auto watcher = startedWatcher();
    home().write("Desktop/a.webloc");
    ASSERT_TRUE(bothTriggersRan(*watcher));
    EXPECT_THAT(delivered(), ElementsAre(home().path("Desktop/a.webloc")));
}

TEST_F(FileWatcherInotifyTest, AFileInANewSubfolderIsReported) {
    auto watcher = startedWatcher();
    home().createDirectories("Downloads/one/two");
    home().write("Downloads/one/two/a.webloc");
    ASSERT_TRUE(deliveredAtLeast(1));
    EXPECT_THAT(delivered(), ElementsAre(home().path("Downloads/one/two/a.webloc")));
}

TEST_F(FileWatcherInotifyTest, FilesAndFoldersMovedInAreReported) {
    home().createDirectories("elsewhere/folder");
    home().write("elsewhere/folder/b.webloc");
    home().write("elsewhere/a.webloc");
    auto watcher = startedWatcher();
    home().move("elsewhere/a.webloc", "Desktop/a.webloc");
    home().move("elsewhere/folder", "Desktop/folder");
    ASSERT_TRUE(deliveredAtLeast(2));
    EXPECT_THAT(delivered(), UnorderedElementsAre(home().path("Desktop/a.webloc"),
                                                  home().path("Desktop/folder/b.webloc")));
}

TEST_F(FileWatcherInotifyTest, AnAddedFolderThatAppearsLaterIsWatched) {
    auto watcher = startedWatcher({home().path("Links")});
    home().createDirectories("Links/sub");
    home().write("Links/sub/a.webloc");
    ASSERT_TRUE(deliveredAtLeast(1));
    EXPECT_THAT(delivered(), ElementsAre(home().path("Links/sub/a.webloc")));
}

TEST_F(FileWatcherInotifyTest, AnOldFileInASubfolderIsReportedOnceAnythingChangesThere) {
    std::size_t withoutSubfolders = 0;
    {
        auto watcher = startedWatcher();
        home().write("Desktop/a.webloc");
        home().write("Downloads/a.webloc");
        ASSERT_TRUE(bothTriggersRan(*watcher));
        withoutSubfolders = inotifyWatches();
    }
    ASSERT_TRUE(waitUntil([] { return inotifyWatches() == 0; }));
    forgetDelivered();
    constexpr std::array folders{"appended", "attribute", "emptied", "left"};
    for (const auto* folder : folders) {
        home().write("Downloads/" + std::string(folder) + "/old.webloc");
        home().write("Downloads/" + std::string(folder) + "/file");
    }
    const auto path = [this](const std::string& name) { return home().path("Downloads/" + name); };
    auto watcher = startedWatcher();
    ASSERT_TRUE(waitUntil([&] { return inotifyWatches() == withoutSubfolders + folders.size(); }));
    home().write("Downloads/appended/file", "more");
    EXPECT_EQ(::chmod(path("attribute/file").c_str(), 0600), 0);
    home().remove("Downloads/emptied/file");
    home().move("Downloads/left/file", "elsewhere");
    ASSERT_TRUE(deliveredAtLeast(4));
    EXPECT_THAT(delivered(),
                UnorderedElementsAre(path("appended/old.webloc"), path("attribute/old.webloc"),
                                     path("emptied/old.webloc"), path("left/old.webloc")));
}

TEST_F(FileWatcherInotifyTest, SettingAnIconCostsOneMoreScanAndNoLoop) {
    auto watcher = startedWatcher();
    home().createDirectories("Downloads/sub");
    home().write("Downloads/sub/a.webloc");
    ASSERT_TRUE(deliveredAtLeast(1));
    ASSERT_TRUE(longerThanBothDelays(*watcher));
    const int before = watcher->passes;
    const auto path = home().path("Downloads/sub/a.webloc");
    EXPECT_EQ(::setxattr(path.c_str(), "user.glintmark.icon", "hash", 4, 0), 0);
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), nullptr, 0), 0);
    ASSERT_TRUE(waitUntil([&] { return watcher->passes > before; }));
    ASSERT_TRUE(longerThanBothDelays(*watcher));
    EXPECT_EQ(watcher->passes, before + 1);
    EXPECT_EQ(delivered().size(), 1U);
}

TEST_F(FileWatcherInotifyTest, AContinuousWriterDoesNotPutOffOtherFolders) {
    home().createDirectories("Downloads/busy");
    home().createDirectories("Downloads/sub");  // where no poll looks
    auto watcher = startedWatcher();
    std::atomic<bool> isOver = false;
    std::thread writer([&] {
        while (!isOver) {
            home().write("Downloads/busy/file", "more");
        }
    });
    EXPECT_TRUE(waitUntil([&] { return watcher->passes > 0; }));
    home().write("Downloads/sub/a.webloc");
    EXPECT_TRUE(deliveredAtLeast(1));
    isOver = true;
    writer.join();
}

TEST_F(FileWatcherInotifyTest, RelativeAndEmptyFoldersDoNoHarm) {
    auto watcher = startedWatcher({"", "relative", "."});
    home().createDirectories("Downloads/sub");
    home().write("Downloads/sub/a.webloc");
    ASSERT_TRUE(deliveredAtLeast(1));
    EXPECT_THAT(delivered(), ElementsAre(home().path("Downloads/sub/a.webloc")));
}

TEST_F(FileWatcherInotifyTest, ASubfolderThatOpensIsTakenUpWithItsLinks) {
    home().write("Downloads/a/closed/below/old.webloc");
    const auto closed = home().path("Downloads/a/closed");
    ASSERT_EQ(::chmod(home().path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(closed.c_str(), 0), 0);
    std::shared_ptr<CountingWatcher> watcher;
    {
        const platform::Unprivileged unprivileged;
        watcher = startedWatcher();
    }
    home().write("Downloads/a/marker.webloc");
    ASSERT_TRUE(deliveredAtLeast(1));
    ASSERT_EQ(::chmod(closed.c_str(), 0755), 0);
    ASSERT_TRUE(deliveredAtLeast(2));
    EXPECT_EQ(delivered().back(), closed + "/below/old.webloc");
}

TEST_F(FileWatcherInotifyTest, AFileThatVanishesAfterTheListingIsReportedOnceItIsBack) {
    auto watcher = startedWatcher();
    files().removesFiles = true;
    home().write("Desktop/a.webloc");
    ASSERT_TRUE(waitUntil([&] { return files().removals > 0; }));
    const int polls = watcher->polls;
    ASSERT_TRUE(waitUntil([&] { return watcher->polls > polls + 1; }));
    EXPECT_THAT(delivered(), testing::IsEmpty());

    files().removesFiles = false;
    home().write("Desktop/a.webloc");
    ASSERT_TRUE(bothTriggersRan(*watcher));
    EXPECT_THAT(delivered(), ElementsAre(home().path("Desktop/a.webloc")));
}

TEST_F(FileWatcherInotifyTest, AFileMovedAwayAndBackIsReportedOnce) {
    home().createDirectories("elsewhere");
    auto watcher = startedWatcher();
    home().write("Desktop/a.webloc");
    ASSERT_TRUE(deliveredAtLeast(1));
    home().move("Desktop/a.webloc", "elsewhere/a.webloc");
    home().move("elsewhere/a.webloc", "Desktop/a.webloc");
    ASSERT_TRUE(bothTriggersRan(*watcher));
    EXPECT_THAT(delivered(), ElementsAre(home().path("Desktop/a.webloc")));
}

TEST_F(FileWatcherInotifyTest, AFolderThatDiffersByASlashReportsEachFileOnce) {
    home().write("Desktop/old.webloc");
    auto watcher = startedWatcher({home().path("Desktop/"), home().path("Desktop//")});
    home().write("Desktop/a.webloc");
    ASSERT_TRUE(bothTriggersRan(*watcher));
    EXPECT_THAT(delivered(), ElementsAre(home().path("Desktop/a.webloc")));
}

TEST_F(FileWatcherInotifyTest, ALinkIsReportedAtTheNextChangeOnceItsTargetExists) {
    auto watcher = startedWatcher();
    home().createDirectories("Downloads/sub");
    home().createLink(home().path("elsewhere.webloc"), "Downloads/sub/link.webloc");
    home().write("Downloads/sub/a.webloc");
    ASSERT_TRUE(deliveredAtLeast(1));
    home().write("elsewhere.webloc");
    home().write("Downloads/sub/b.webloc");
    ASSERT_TRUE(deliveredAtLeast(3));
    EXPECT_THAT(delivered(), UnorderedElementsAre(home().path("Downloads/sub/a.webloc"),
                                                  home().path("Downloads/sub/b.webloc"),
                                                  home().path("Downloads/sub/link.webloc")));
}

TEST_F(FileWatcherInotifyTest, AFolderThatMayNotBeReadIsSkippedAndTakenUpWhenItMay) {
    home().write("Links/old.webloc");
    ASSERT_EQ(::chmod(home().path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(home().path("Links").c_str(), 0), 0);
    std::shared_ptr<CountingWatcher> watcher;
    {
        const platform::Unprivileged unprivileged;  // the watcher's threads begin meanwhile
        watcher = startedWatcher({home().path("Links")});
        ASSERT_TRUE(waitUntil([&] { return watcher->polls > 0; }));
    }
    home().write("Desktop/a.webloc");
    ASSERT_TRUE(bothTriggersRan(*watcher));
    EXPECT_THAT(delivered(), ElementsAre(home().path("Desktop/a.webloc")));
    ASSERT_EQ(::chmod(home().path("Links").c_str(), 0755), 0);
    ASSERT_TRUE(deliveredAtLeast(2));
    EXPECT_EQ(delivered().back(), home().path("Links/old.webloc"));
}

TEST_F(FileWatcherInotifyTest, StartingAndStoppingAThousandTimesLeaksNothing) {
    home().createDirectories("Desktop/sub/deep");
    platform::runPending();  // so that the main loop has opened its descriptors
    const auto descriptors = openDescriptors();
    std::vector<std::weak_ptr<FileWatcher>> watchers;
    for (int i = 0; i < 1000; ++i) {
        auto watcher = startedWatcher();
        watchers.push_back(watcher);
        home().write("Desktop/" + std::to_string(i) + ".webloc");
        if (i % 2 == 0) {
            watcher->stop();
        }
        platform::runPending();
        if (i % 20 == 0) {  // the system limits the inotify instances of a user
            EXPECT_TRUE(waitUntil([] { return threadsNamed(streamThread) <= 1; }));
        }
    }
    const auto allAreGone = [&] {
        return std::all_of(watchers.begin(), watchers.end(),
                           [](const auto& watcher) { return watcher.expired(); });
    };
    EXPECT_TRUE(waitUntil(allAreGone));
    EXPECT_TRUE(waitUntil([] { return threadsNamed(queueThread) == 0; }));
    EXPECT_TRUE(waitUntil([] { return threadsNamed(streamThread) == 0; }));
    EXPECT_TRUE(waitUntil([&] { return openDescriptors() <= descriptors; }));
    EXPECT_EQ(inotifyWatches(), 0U);
}

TEST_F(FileWatcherInotifyTest, OneWatcherCanStartAndStopManyTimesWhileFilesCome) {
    constexpr int maximumFiles = 2000;
    auto watcher = startedWatcher();  // before the first file, which would count as old
    std::atomic<bool> isOver = false;
    std::atomic<int> files = 0;
    std::thread browser([&] {
        while (!isOver && files < maximumFiles) {
            home().write("Desktop/" + std::to_string(++files) + ".webloc");
        }
    });
    for (int i = 0; i < 20; ++i) {
        const int polls = watcher->polls;
        EXPECT_TRUE(waitUntil([&] { return watcher->polls > polls; }));
        watcher->stop();
        watcher->start();
    }
    isOver = true;
    browser.join();
    EXPECT_TRUE(deliveredAtLeast(static_cast<std::size_t>(files)));
    auto sorted = delivered();
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
    EXPECT_EQ(sorted.size(), static_cast<std::size_t>(files));
}

TEST_F(FileWatcherInotifyTest, AWatcherCanGoAwayInTheMiddleOfAScan) {
    for (int i = 0; i < 50; ++i) {
        home().write("Desktop/" + std::to_string(i) + ".webloc");
    }
    for (int i = 0; i < 10; ++i) {
        auto watcher = startedWatcher();
        auto* const counting = watcher.get();
        ASSERT_TRUE(waitUntil([&] { return counting->polls > 0; }));
        watcher.reset();
    }
}

}  // namespace
}  // namespace glintmark
