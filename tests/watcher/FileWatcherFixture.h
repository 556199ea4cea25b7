#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/doubles/TestPlatform.h"
#include "watcher/FileWatcher.h"

namespace glintmark {

/// A watcher that counts its debounced scans and lets a test call its protected operations.
class OpenFileWatcher : public FileWatcher {
public:
    using FileWatcher::FileWatcher;
    using FileWatcher::handleDirectoryEvent;
    using FileWatcher::pollWatchDirs;
    using FileWatcher::scanDirectoryShallow;

    int passes = 0;  ///< Debounced scans so far.

protected:
    void processPendingDirs() override {
        ++passes;
        FileWatcher::processPendingDirs();
    }
};

class FileWatcherTest : public doubles::PlatformTest {
protected:
    static constexpr const char* desktop = "/home/kim/Desktop";
    static constexpr const char* downloads = "/home/kim/Downloads";
    static constexpr const char* links = "/home/kim/Links";
    static constexpr const char* queueLabel = "com.quorvel.Glintmark.fsevents";

    FileWatcherTest() {
        for (const auto* folder : {desktop, downloads, links}) {
            files().createDirectory(folder);
        }
    }

    std::shared_ptr<OpenFileWatcher> makeWatcher(const std::vector<std::string>& paths = {links}) {
        return std::make_shared<OpenFileWatcher>(paths, [this](const FileWatcherEvent& event) {
            events_.push_back(event);
            deliveryQueues_.push_back(queues().current());
        });
    }

    /// Started, with its timer scheduled. Forgets the listings and log lines of the construction.
    std::shared_ptr<OpenFileWatcher> startedWatcher(const std::vector<std::string>& paths = {
                                                        links}) {
        auto watcher = makeWatcher(paths);
        watcher->start();
        queues().runPending();
        files().forgetListings();
        log().forget();
        return watcher;
    }

    doubles::FakeEventStreamFactory& streams() { return platform().eventStreams; }
    doubles::StreamRecord& stream() { return streams().stream(streams().streamCount() - 1); }

    const std::vector<FileWatcherEvent>& events() const { return events_; }
    std::vector<std::string> delivered() const {
        std::vector<std::string> paths;
        for (const auto& event : events_) {
            paths.push_back(event.path);
        }
        return paths;
    }
    const std::vector<std::string>& deliveryQueues() const { return deliveryQueues_; }

private:
    std::vector<FileWatcherEvent> events_;
    std::vector<std::string> deliveryQueues_;
};

}  // namespace glintmark
