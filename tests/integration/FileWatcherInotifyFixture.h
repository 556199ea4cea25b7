#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "linux/files/PosixFileManager.h"
#include "linux/queues/GLibTimers.h"
#include "linux/queues/LinuxDispatchQueues.h"
#include "linux/watching/InotifyEventStream.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/ProcessState.h"
#include "tests/support/TemporaryDirectory.h"
#include "watcher/FileWatcher.h"

namespace glintmark {

// The part of the queue's label that fits into a thread's name: pthread_setname_np(3).
inline constexpr const char* queueThread = "com.quorvel.Gli";

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

/// The real file manager. It can remove files just before the question whether they exist.
class RemovingFileManager : public platform::PosixFileManager {
public:
    platform::Entry entry(const std::string& path) override {
        if (removesFiles) {
            ::unlink(path.c_str());
            ++removals;
        }
        return PosixFileManager::entry(path);
    }

    std::atomic<bool> removesFiles = false;
    std::atomic<int> removals = 0;
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

/// The watcher over real queues, timers, files and inotify. The user's home folder is a temporary
/// directory.
class FileWatcherInotifyTest : public testing::Test {
protected:
    FileWatcherInotifyTest() {
        home_.createDirectories("Desktop");
        home_.createDirectories("Downloads");
        setenv("HOME", home_.path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    }

    ~FileWatcherInotifyTest() override {
        // The services may end only when no queue has work.
        EXPECT_TRUE(platform::waitUntil([] { return platform::threadsNamed(queueThread) == 0; }));
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
        return platform::waitUntil(
            [&] { return watcher.passes > passes && watcher.polls > polls + 1; });
    }

    /// Waits until a change that happened before would have been scanned.
    static bool longerThanBothDelays(const CountingWatcher& watcher) {
        constexpr int enough = 20;  // polls, 0.1 s apart
        const int polls = watcher.polls;
        return platform::waitUntil([&] { return watcher.polls > polls + enough; });
    }

    bool deliveredAtLeast(std::size_t count) {
        return platform::waitUntil([&] { return delivered_.size() >= count; });
    }

    test::TemporaryDirectory& home() { return home_; }
    const std::vector<std::string>& delivered() const { return delivered_; }
    void forgetDelivered() { delivered_.clear(); }
    RemovingFileManager& files() { return fileManager_; }
    doubles::FakeLog& log() { return fakes_.log; }

private:
    test::TemporaryDirectory home_;
    std::vector<std::string> delivered_;
    doubles::Fakes fakes_;
    platform::LinuxDispatchQueues queues_;
    QuickTimers timers_;
    RemovingFileManager fileManager_;
    platform::InotifyEventStreamFactory streams_{fakes_.log};
    platform::Services services_ = fakes_.servicesWith({.dispatchQueues = &queues_,
                                                        .eventStreams = &streams_,
                                                        .fileManager = &fileManager_,
                                                        .timers = &timers_});
    platform::ServicesScope scope_{services_};
};

}  // namespace glintmark
