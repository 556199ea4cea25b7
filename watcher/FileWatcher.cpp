#include "watcher/FileWatcher.h"

#include <algorithm>
#include <chrono>
#include <span>
#include <string_view>
#include <utility>

#include "base/system/FilePath.h"
#include "base/system/LinkFile.h"
#include "base/text/TextDescription.h"
#include "base/work/DispatchWorkItem.h"
#include "platform/DispatchQueues.h"
#include "platform/EventStream.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/Timer.h"

namespace glintmark {

using platform::services;
using namespace std::chrono_literals;

namespace {

constexpr const char* eventQueueLabel = "com.quorvel.Glintmark.fsevents";
constexpr const char* linkQueueLabel = "link-targets";
constexpr std::chrono::nanoseconds streamLatency = 1s;
constexpr std::chrono::nanoseconds debounceDelay = 500ms;
constexpr std::chrono::nanoseconds pollInterval = 5s;
constexpr std::chrono::nanoseconds inventoryLimit = 2s;  // of all folders together

std::vector<std::string> foldersToWatch(const std::string& home,
                                        const std::vector<std::string>& paths) {
    const auto defaults = services().fileManager.desktopAndDownloads();
    std::vector<std::string> folders(defaults.begin(), defaults.end());
    for (const auto& path : paths) {
        if (path != home && std::find(folders.begin(), folders.end(), path) == folders.end()) {
            folders.push_back(path);
        }
    }
    return folders;
}

/// Calls `visit` with the full path of each ".webloc" entry directly inside `directory`. A folder
/// that cannot be listed has none. All paths share one buffer: a poll sees thousands of names again
/// and again, and none of them costs an allocation.
template <typename Visit>
void forEachWebloc(const std::string& directory, const Visit& visit) {
    std::string path = appendPathComponent(directory, "");
    const auto prefixLength = path.size();
    services().fileManager.contentsOfDirectory(directory, [&](std::string_view name) {
        if (name.ends_with(linkFileSuffix)) {
            path.resize(prefixLength);
            path += name;
            visit(path);
        }
    });
}

std::string withoutOneTrailingSlash(const std::string& path) {
    return path.ends_with('/') ? path.substr(0, path.size() - 1) : path;
}

}  // namespace

FileWatcher::FileWatcher(const std::vector<std::string>& paths, Callback callback)
    : callback_(std::move(callback)),
      eventQueue_(services().dispatchQueues.makeSerial(eventQueueLabel)) {
    const auto home = services().fileManager.homeDirectoryForCurrentUser();
    watchDirs_ = foldersToWatch(home, paths);
    // The home folder is not watched, but its link files are part of the inventory and of the
    // logged count.
    std::vector<std::string> folders{home};
    folders.insert(folders.end(), watchDirs_.begin(), watchDirs_.end());
    inventory_ = services().fileManager.beginListings(folders, linkFileSuffix, inventoryLimit);
    for (const auto& folder : folders) {
        FileWatcher::enumerateExistingWeblocsShallow(folder);
    }
    services().log.write("Glintmark: 既存weblocファイル " + std::to_string(knownFiles_.size()) +
                         " 件を記録");
    services().log.write("Glintmark: 監視対象ディレクトリ: " + listDescription(watchDirs_));
}

FileWatcher::~FileWatcher() {
    FileWatcher::stop();
    for (const auto& stream : replacedStreams_) {  // while their queue still exists
        stream->stop();
        stream->invalidate();
    }
}

void FileWatcher::enumerateExistingWeblocsShallow(const std::string& directory) {
    const bool hasAnswered = inventory_->collect(directory, [&](std::string_view name) {
        knownFiles_.insert(appendPathComponent(directory, name));
    });
    if (!hasAnswered) {
        unlistedFolders_.push_back(directory);
    }
}

/// Asks again for the folders that had not answered.
void FileWatcher::completeInventory() {
    for (const auto& folder : std::exchange(unlistedFolders_, {})) {
        enumerateExistingWeblocsShallow(folder);
    }
}

bool FileWatcher::isInventoried(const std::string& prefix) const {
    return std::none_of(unlistedFolders_.begin(), unlistedFolders_.end(), [&](const auto& folder) {
        return appendPathComponent(folder, "") == prefix;
    });
}

void FileWatcher::start() {
    {
        const std::lock_guard lock(debounceMutex_);
        isStopped_ = false;
    }
    startStream();
    services().dispatchQueues.main().async(
        [self = shared_from_this()] { self->schedulePollTimer(); });
}

void FileWatcher::startStream() {
    // Weak, since the watcher owns the stream.
    auto handler = [weak = weak_from_this()](std::span<const platform::DirectoryEvent> events) {
        if (const auto self = weak.lock()) {
            for (const auto& event : events) {
                self->handleDirectoryEvent(event.path, event.flags);
            }
        }
    };
    if (stream_) {
        replacedStreams_.push_back(std::move(stream_));
    }
    stream_ = services().eventStreams.create(watchDirs_, streamLatency, std::move(handler));
    if (stream_) {
        stream_->setDispatchQueue(*eventQueue_);
        stream_->start();
        services().log.write("Glintmark: ファイル監視開始（バックグラウンドキュー）");
    }
}

void FileWatcher::schedulePollTimer() {
    pollTimer_ = services().timers.scheduleRepeating(pollInterval, [weak = weak_from_this()] {
        if (auto self = weak.lock()) {
            auto& queue = *self->eventQueue_;
            queue.async([self = std::move(self)] { self->pollWatchDirs(); });
        }
    });
}

void FileWatcher::handleDirectoryEvent(const std::string& dirPath, std::uint32_t flags) {
    if ((flags & platform::mustScanSubDirs) != 0) {
        pendingDirs_.insert(watchDirs_.begin(), watchDirs_.end());
    } else {
        pendingDirs_.insert(withoutOneTrailingSlash(dirPath));
    }
    armDebounce();
}

void FileWatcher::armDebounce() {
    auto item = std::make_shared<DispatchWorkItem>([weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            self->processPendingDirs();
        }
    });
    {
        const std::lock_guard lock(debounceMutex_);
        if (isStopped_) {
            return;  // the handler was already running when the watcher stopped
        }
        if (debounceWorkItem_) {
            debounceWorkItem_->cancel();
        }
        debounceWorkItem_ = item;
    }
    eventQueue_->asyncAfter(debounceDelay, std::move(item));
}

void FileWatcher::processPendingDirs() {
    const auto pending = std::exchange(pendingDirs_, {});
    dirsToScan_.insert(dirsToScan_.end(), pending.begin(), pending.end());
    scanAll();
}

/// A scan may wait for its file system while the queue does other work. So the directories behind
/// it are not held on the stack: the next pass or poll scans them.
void FileWatcher::scanAll() {
    while (!dirsToScan_.empty()) {
        const auto directory = std::move(dirsToScan_.front());
        dirsToScan_.pop_front();
        scanDirectoryShallow(directory);
    }
}

void FileWatcher::scanDirectoryShallow(const std::string& directory) {
    const auto prefix = appendPathComponent(directory, "");
    if (!isInventoried(prefix)) {
        return;
    }
    const auto [scan, isOnlyOne] = scans_.try_emplace(prefix, Scan::once);
    if (!isOnlyOne) {
        scan->second = Scan::again;  // the earlier one still waits for the file system
        return;
    }
    do {
        scans_.at(prefix) = Scan::once;
        forEachWebloc(directory, [this](const std::string& path) { look(path); });
    } while (scans_.at(prefix) == Scan::again);
    scans_.erase(prefix);
}

void FileWatcher::look(const std::string& path) {
    if (knownFiles_.find(path)) {
        return;
    }
    switch (services().fileManager.entry(path)) {
        case platform::Entry::none:
            break;
        case platform::Entry::link:
            followLink(path);
            break;
        case platform::Entry::other:
            report(path);
            break;
    }
}

/// The target may be on another file system, which must not hold up the scan.
void FileWatcher::followLink(const std::string& path) {
    if (!followedLinks_.insert(path).second) {
        return;  // the earlier look at its target has not ended
    }
    if (linkQueue_ == nullptr) {
        linkQueue_ = services().dispatchQueues.makeSerial(linkQueueLabel);
    }
    linkQueue_->async([weak = weak_from_this(), path] {
        const bool exists = services().fileManager.fileExists(path);
        if (auto self = weak.lock()) {
            auto& queue = *self->eventQueue_;
            queue.async([self = std::move(self), path, exists] {
                self->followedLinks_.erase(path);
                if (exists && !self->knownFiles_.find(path)) {
                    self->report(path);
                }
            });
        }
    });
}

void FileWatcher::report(const std::string& path) {
    knownFiles_.insert(path);
    services().log.write("Glintmark: 新規webloc検知 → " + path);
    services().dispatchQueues.main().async(
        [self = shared_from_this(), event = FileWatcherEvent{path, 0}] { self->callback_(event); });
}

void FileWatcher::pollWatchDirs() {
    completeInventory();
    dirsToScan_.insert(dirsToScan_.end(), watchDirs_.begin(), watchDirs_.end());
    scanAll();
}

void FileWatcher::stop() {
    invalidatePollTimer();
    cancelDebounce();
    if (stream_) {
        stream_->stop();
        stream_->invalidate();
        stream_.reset();
        services().log.write("Glintmark: ファイル監視停止");
    }
}

void FileWatcher::invalidatePollTimer() {
    auto& main = services().dispatchQueues.main();
    if (auto self = weak_from_this().lock()) {
        // Runs after the block of `start()` that makes the timer, so it finds the timer.
        main.async([self = std::move(self)] {
            if (self->pollTimer_) {
                self->pollTimer_->invalidate();
                self->pollTimer_.reset();
            }
        });
    } else if (pollTimer_) {
        // The watcher is being destroyed, so no block may hold it. The block holds the timer alone.
        main.async([timer = std::move(pollTimer_)] { timer->invalidate(); });
    }
}

void FileWatcher::cancelDebounce() {
    const std::lock_guard lock(debounceMutex_);
    isStopped_ = true;
    if (debounceWorkItem_) {
        debounceWorkItem_->cancel();
        debounceWorkItem_.reset();
    }
}

}  // namespace glintmark
