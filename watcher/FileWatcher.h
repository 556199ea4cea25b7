#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "watcher/FileWatcherEvent.h"
#include "watcher/KnownFiles.h"

namespace glintmark {

class DispatchQueue;
class DispatchWorkItem;

namespace platform {
class EventStream;
class Listings;
class Timer;
}  // namespace platform

/// Reports each new ".webloc" file in a list of folders and, where the system reports changes,
/// anywhere below them: each path once in the watcher's life. Files that were directly inside the
/// folders when the watcher was made are never reported. Older files in a subfolder count as new
/// when something in that subfolder changes.
///
/// Two triggers lead to the same scan of a single folder: changes that the event stream reports,
/// 0.5 s after the last of a burst, and a poll of the watched folders every 5 s. Without a stream
/// the poll works alone.
///
/// A folder whose file system does not answer holds up nothing but itself. If it has not answered
/// when the inventory ends, it is not scanned until it does; the files that are in it then belong
/// to the inventory. A symbolic link counts when its target exists; the target is looked up on a
/// queue of its own.
///
/// Made by `std::make_shared`. Construct, start and stop it on the main thread. The scanning state
/// belongs to the watcher's serial queue, `pollTimer_` to the main thread. The last reference may
/// be released on any thread, even on the watcher's queue.
class FileWatcher : public std::enable_shared_from_this<FileWatcher> {
public:
    /// Runs on the main queue, in the order in which the files were found.
    using Callback = std::function<void(const FileWatcherEvent&)>;

    /// Watches the user's Desktop and Downloads folders, as the file manager names them, then those
    /// of `paths` that are neither in the list already nor the home folder. They need not exist.
    /// Takes the inventory of files that are not new, which waits up to 2 s in all for folders that
    /// do not answer. Does not start.
    FileWatcher(const std::vector<std::string>& paths, Callback callback);

    /// Stops.
    virtual ~FileWatcher();

    FileWatcher(const FileWatcher&) = delete;
    FileWatcher& operator=(const FileWatcher&) = delete;

    /// Begins to report. A second call without `stop()` in between makes another stream and another
    /// timer; the earlier ones go on, the stream until the watcher is destroyed.
    virtual void start();

    /// Ends the stream, the timer and the debounce. No debounced scan starts after this returns. A
    /// scan that was queued before still runs and may report a file.
    virtual void stop();

protected:
    /// Adds the ".webloc" files directly inside `directory`, which is the home folder or a watched
    /// one, to the known files, or notes that it has not answered yet.
    virtual void enumerateExistingWeblocsShallow(const std::string& directory);

    // The following run on the watcher's queue.

    /// Notes that something changed directly inside `dirPath`, or in any folder if `flags` say that
    /// single changes were lost, and restarts the delay of the debounced scan.
    virtual void handleDirectoryEvent(const std::string& dirPath, std::uint32_t flags);
    virtual void processPendingDirs();
    virtual void scanDirectoryShallow(const std::string& directory);
    virtual void pollWatchDirs();

private:
    enum class Scan { once, again };

    void startStream();
    void schedulePollTimer();
    void invalidatePollTimer();
    void armDebounce();
    void cancelDebounce();
    void completeInventory();
    bool isInventoried(const std::string& prefix) const;
    void scanAll();
    void look(const std::string& path);
    void followLink(const std::string& path);
    void report(const std::string& path);

    std::unique_ptr<platform::EventStream> stream_;
    std::vector<std::unique_ptr<platform::EventStream>> replacedStreams_;
    Callback callback_;
    KnownFiles knownFiles_;  // by full path: those of the inventory, and those reported
    std::shared_ptr<platform::Timer> pollTimer_;
    std::unique_ptr<DispatchQueue> eventQueue_;
    std::unordered_set<std::string> pendingDirs_;  // waiting for the debounced scan
    std::deque<std::string> dirsToScan_;           // of passes and polls that are not done
    std::unordered_map<std::string, Scan> scans_;  // not ended, by the prefix of their paths
    std::unordered_set<std::string> followedLinks_;
    std::unique_ptr<DispatchQueue> linkQueue_;  // null until the first link
    std::unique_ptr<platform::Listings> inventory_;
    std::vector<std::string> unlistedFolders_;  // have not answered yet
    std::mutex debounceMutex_;
    std::shared_ptr<DispatchWorkItem> debounceWorkItem_;  // guarded by debounceMutex_
    bool isStopped_ = false;                              // guarded by debounceMutex_
    std::vector<std::string> watchDirs_;
};

}  // namespace glintmark
