#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "watcher/FileWatcherEvent.h"

namespace glintmark {

class DispatchQueue;
class DispatchWorkItem;

namespace platform {
class EventStream;
class Timer;
}  // namespace platform

/// Reports each new ".webloc" file in a list of folders and, as far as the system reports changes
/// there, anywhere below them: once per path in the watcher's life. Files that were in the folders
/// when it was made are never reported.
///
/// Two triggers lead to the same scan of a single folder: changes that the event stream reports,
/// 0.5 s after the last of a burst, and a poll of the watched folders every 5 s, which works alone
/// where there is no stream.
///
/// Made by `std::make_shared`. Construction, `start()` and `stop()` belong to the main thread. The
/// scanning state lives on the watcher's serial queue, `pollTimer_` on the main thread. The last
/// reference may go away on any thread, the serial queue's own included.
class FileWatcher : public std::enable_shared_from_this<FileWatcher> {
public:
    /// Runs on the main queue, in the order in which the files were found.
    using Callback = std::function<void(const FileWatcherEvent&)>;

    /// Watches the user's Desktop and Downloads folders and then those of `paths` that are neither
    /// listed already nor the home folder; they need not exist. Takes the inventory of files that
    /// are not new. Does not start.
    FileWatcher(const std::vector<std::string>& paths, Callback callback);

    /// Stops.
    virtual ~FileWatcher();

    FileWatcher(const FileWatcher&) = delete;
    FileWatcher& operator=(const FileWatcher&) = delete;

protected:
    /// Puts the ".webloc" files directly inside `directory` on the list of known files.
    virtual void enumerateExistingWeblocsShallow(const std::string& directory);

public:
    /// Begins to report. Not to be called twice without `stop()`.
    virtual void start();

protected:
    // These run on the watcher's queue.

    /// Notes that something changed directly inside `dirPath`, or anywhere when `flags` say that
    /// single changes were lost, and arms the debounced scan anew.
    virtual void handleDirectoryEvent(const std::string& dirPath, std::uint32_t flags);
    virtual void processPendingDirs();
    virtual void scanDirectoryShallow(const std::string& directory);
    virtual void pollWatchDirs();

public:
    /// Ends the stream, the timer and the debounce: no debounced scan starts once this has
    /// returned. A scan that was queued before still runs and may report a file.
    virtual void stop();

private:
    /// Knows which file came after it when it was last listed: a folder is listed in the same order
    /// again and again.
    struct KnownFile {
        std::pair<const std::string, KnownFile>* next = nullptr;
    };
    using KnownFiles = std::unordered_map<std::string, KnownFile>;

    bool isKnown(const std::string& path);
    void startStream();
    void schedulePollTimer();
    void invalidatePollTimer();
    void armDebounce();
    void cancelDebounce();
    void report(const std::string& path);

    std::unique_ptr<platform::EventStream> stream_;
    Callback callback_;
    KnownFiles knownFiles_;                           // by full path, seen or reported; only grows
    KnownFiles::value_type* listedBefore_ = nullptr;  // the known file that was listed last
    std::shared_ptr<platform::Timer> pollTimer_;
    std::unique_ptr<DispatchQueue> eventQueue_;
    std::unordered_set<std::string> pendingDirs_;  // waiting for the debounced scan
    std::mutex debounceMutex_;
    std::shared_ptr<DispatchWorkItem> debounceWorkItem_;  // guarded by debounceMutex_
    bool isStopped_ = false;                              // guarded by debounceMutex_
    std::vector<std::string> watchDirs_;
};

}  // namespace glintmark
