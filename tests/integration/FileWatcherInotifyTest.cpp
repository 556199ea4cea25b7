#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

#include "linux/files/PosixFileManager.h"
#include "linux/queues/GLibTimers.h"
#include "linux/queues/LinuxDispatchQueues.h"
#include "linux/watching/InotifyEventStream.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/ProcessState.h"
#include "tests/support/TemporaryDirectory.h"
#include "watcher/FileWatcher.h"

// The watcher over real queues, timers, files and inotify.

namespace glintmark {
namespace {

using platform::inotifyWatches;
using platform::openDescriptors;
using platform::threadsNamed;
using platform::waitUntil;
using testing::ElementsAre;
using testing::UnorderedElementsAre;
using namespace std::chrono_literals;

// The part of the queue's label that fits into a thread's name: pthread_setname_np(3).
constexpr const char* queueThread = "com.quorvel.Gli";
constexpr const char* streamThread = "event-stream";

/// Timers that fire fifty times as often, so that no test waits long for a poll.
class QuickTimers : public platform::Timers {
public:
    std::shared_ptr<platform::Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                       std::function<void()> block) override {
        return timers_.scheduleRepeating(interval / 50, std::move(block));
    }

private:
    platform::GLibTimers timers_;
};

class CountingWatcher : public FileWatcher {
public:
    using FileWatcher::FileWatcher;

    std::atomic<int> passes = 0;  ///< Debounced scans that have ended.
    std::atomic<int> polls = 0;   ///< That have ended.

protected:
    void processPendingDirs() override {
        FileWatcher::processPendingDirs();
        ++passes;
    }
    void pollWatchDirs() override {
        FileWatcher::pollWatchDirs();
        ++polls;
    }
};

/// The user's home folder is a temporary directory.
class FileWatcherInotifyTest : public testing::Test {
protected:
    FileWatcherInotifyTest() {
        home_.createDirectories("Desktop");
        home_.createDirectories("Downloads");
        setenv("HOME", home_.path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    }

    ~FileWatcherInotifyTest() override {
        // The services may end only when no queue has work.
        EXPECT_TRUE(waitUntil([] { return threadsNamed(queueThread) == 0; }));
        platform::runPending();
    }

    std::shared_ptr<CountingWatcher> startedWatcher(std::vector<std::string> folders = {}) {
        auto watcher = std::make_shared<CountingWatcher>(
            folders, [this](const FileWatcherEvent& event) { delivered_.push_back(event.path); });
        watcher->start();
        return watcher;
    }

    /// Waits until a debounced scan and a poll have seen each file that exists now.
    static bool bothTriggersRan(const CountingWatcher& watcher) {
        const int passes = watcher.passes;
        const int polls = watcher.polls;
        // The first poll to end from now on may have begun before.
        return waitUntil([&] { return watcher.passes > passes && watcher.polls > polls + 1; });
    }

    bool deliveredAtLeast(std::size_t count) {
        return waitUntil([&] { return delivered_.size() >= count; });
    }

    test::TemporaryDirectory& home() { return home_; }
    const std::vector<std::string>& delivered() const { return delivered_; }
    doubles::FakeLog& log() { return fakes_.log; }

private:
    test::TemporaryDirectory home_;
    std::vector<std::string> delivered_;
    doubles::Fakes fakes_;
    platform::LinuxDispatchQueues queues_;
    QuickTimers timers_;
    platform::PosixFileManager fileManager_;
    platform::InotifyEventStreamFactory streams_{fakes_.log};
    platform::Services services_{
        .application = fakes_.application,
        .bundle = fakes_.bundle,
        .configuration = fakes_.configuration,
        .dispatchQueues = queues_,
        .eventStreams = streams_,
        .fileManager = fileManager_,
        .imageDecoder = fakes_.imageDecoder,
        .log = fakes_.log,
        .openPanel = fakes_.openPanel,
        .statusBar = fakes_.statusBar,
        .timers = timers_,
        .urlSession = fakes_.urlSession,
        .userDefaults = fakes_.userDefaults,
        .userNotificationCenter = fakes_.notifications,
        .workspace = fakes_.workspace,
    };
    platform::ServicesScope scope_{services_};
};

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
