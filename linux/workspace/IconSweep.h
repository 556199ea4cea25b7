#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "linux/glib/GLibHandles.h"
#include "linux/queues/Thread.h"
#include "linux/workspace/AppliedIcons.h"
#include "linux/workspace/IconStore.h"

namespace glintmark::platform {

/// Removes stored icons that no file uses.
///
/// An icon is removed if all of this is true: nothing has read or written it for thirty days; no
/// file that got it, by the record, still has it; the folders of these files exist; and no link
/// file below the home folder has it (the icon's name moves with the file). If an error leaves open
/// whether a file uses the icon, the icon is kept. A file that the user may not read counts as one
/// that does not use it. Blocks while it searches.
class IconSweep {
public:
    static constexpr std::chrono::hours unusedFor{24 * 30};

    IconSweep(IconStore& store, AppliedIcons& applied, std::string home)
        : store_(store), applied_(applied), home_(std::move(home)) {}

    /// `now` is in seconds since 1970. When `stopping` becomes true while it searches, it returns
    /// without removing anything.
    void run(std::time_t now, const std::atomic<bool>& stopping) const;

    /// Removes the least recently used icons, whatever their age, until the store is relieved:
    /// first those that no file uses, then, only if that is not enough, the others. When `stopping`
    /// becomes true while it searches, it returns without removing anything.
    void makeRoom(const std::atomic<bool>& stopping) const;

    bool hasRoomFor(std::uint64_t bytes) const { return store_.hasRoomFor(bytes); }

private:
    void removeLeastRecentlyUsed(const std::vector<IconStore::Picture>& pictures,
                                 const std::function<bool(const std::string&)>& mayGo) const;
    void keepRecordedIcons(std::set<std::string>& candidates) const;
    void keepIconsBelowHome(std::set<std::string>& candidates,
                            const std::atomic<bool>& stopping) const;

    IconStore& store_;
    AppliedIcons& applied_;
    std::string home_;
};

/// Sweeps ten minutes after the start and then once a day, and when the store is full. Each sweep
/// has its own thread, one at a time. Main thread only, default main context.
class IconSweeper {
public:
    static constexpr std::chrono::milliseconds defaultRoomTimeout{5000};

    explicit IconSweeper(IconSweep sweep,
                         std::chrono::milliseconds roomTimeout = defaultRoomTimeout);
    ~IconSweeper();  ///< Stops a running sweep and waits for it.
    IconSweeper(const IconSweeper&) = delete;
    IconSweeper& operator=(const IconSweeper&) = delete;

    /// Does nothing while another sweep runs.
    void sweepNow();

    /// Returns when the store has room for a picture of `bytes`, but not later than the timeout:
    /// the search may reach a file system that does not answer. While a search is overdue, returns
    /// at once. Any thread but the main one.
    void makeRoomFor(std::uint64_t bytes);

private:
    void scheduleIn(std::chrono::seconds delay);
    bool awaitEnd(std::unique_lock<std::mutex>& lock,
                  std::chrono::steady_clock::time_point deadline);
    void start(std::function<void()> work);

    IconSweep sweep_;
    std::chrono::milliseconds roomTimeout_;
    std::atomic<bool> stopping_ = false;
    GSourceId timer_;

    std::mutex mutex_;  ///< Guards the rest.
    std::condition_variable ended_;
    bool isRunning_ = false;
    bool isOverdue_ = false;
    std::optional<Thread> thread_;
};

}  // namespace glintmark::platform
