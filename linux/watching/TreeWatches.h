#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "linux/files/DirectoryReader.h"
#include "linux/watching/ChangeCutoff.h"
#include "linux/watching/FolderIdentities.h"
#include "linux/watching/Inotify.h"
#include "linux/watching/WatchTree.h"
#include "platform/EventStream.h"

namespace glintmark::platform {

/// Watches every directory below a list of folders and collects which of them changed. One thread;
/// no call blocks.
///
/// A change is a name that appears: made, linked or moved in. Writing to a file, changing its
/// attributes and removing it are not changes, so they cost nothing.
class TreeWatches {
public:
    using Clock = ChangeCutoff::Clock;
    using DebugLogger = std::function<void(std::string_view line)>;

    /// Only changes after this call count.
    TreeWatches(Inotify inotify, std::vector<std::string> folders, DebugLogger logDebug);

    int descriptor() const { return inotify_.descriptor(); }

    /// Watches the folders and begins the first walk.
    void watchFolders();

    /// Watches and walks the directory that a folder's path names now. It may be a new one.
    void rewatchFolder(std::size_t folder);

    /// Begins to walk all trees again: something happened that no event reports.
    void walkAgain();

    /// Handles the events that have arrived.
    void readEvents();

    bool isWalking() const { return (isFirstWalk_ && !retryAt_) || walksAgain_ || !walks_.empty(); }

    /// Walks some of the directories that are still to be walked.
    void continueWalk();

    /// The time of the next walk of all trees, which is a retry: the system refused something that
    /// it may grant later, for example a descriptor. Absent when it refused nothing.
    std::optional<Clock::time_point> retryAt() const { return retryAt_; }
    void retryIfDue();

    /// Since when `takeChanges()` has had something to do. Absent when it has nothing to do.
    std::optional<Clock::time_point> pendingSince() const { return pendingSince_; }

    /// The directories that changed since the last call, each once for each of its spellings.
    std::vector<DirectoryEvent> takeChanges();

    std::size_t watchCount() const { return tree_.size(); }

private:
    using Watch = WatchTree::Watch;

    /// The directories that a walk reports as changed.
    enum class Walk {
        initial,  ///< Those that changed since the cutoff.
        arrived,  ///< Those not watched before.
        moved,    ///< All: each has a new path, which makes all its files new.
        again,    ///< Those not watched before, and those that changed since events were lost.
    };

    struct WalkStep {
        Watch watch;
        Walk walk;
    };

    /// The directory in which a name was found.
    struct Place {
        Watch watch;
        const std::string& path;
        int descriptor = -1;       // negative while the directory is not open
        bool countsLinks = false;  // its file system counts a directory in it as a link
        dev_t device = 0;
    };

    // Retries on a permanently broken file system must cost next to nothing.
    static constexpr std::chrono::seconds minimumRetryPause{1};
    static constexpr std::chrono::seconds maximumRetryPause = std::chrono::hours(1);

    using Identity = FolderIdentity;

    static struct statx statusOf(int descriptor, const std::string& path, int flags);
    static struct statx statusIn(const Place& place, const std::string& name);
    static Identity identityOf(const struct statx& status);
    static bool isLeaf(const Place& place, const struct statx& status);

    // Folders and events
    void watchFolder(std::size_t folder, Walk walk);
    void releaseFolder(std::size_t folder);
    Watch watchDirectory(const std::string& path, std::uint32_t extraFlags);
    void handle(const InotifyEvent& event);
    void handleName(const InotifyEvent& event);
    void handleMove(Watch watch);
    void handleUnmount(Watch watch);
    void handleLoss();

    // Walks
    void walk(const WalkStep& step);
    void readDirectory(const Place& place, Walk walk);
    void visit(const Place& place, const std::string& name, Walk walk);
    void visitIn(Watch parent, const std::string& name, Walk walk);
    bool isChanged(Walk walk, bool isNew, StampedChange change) const;
    Walk walkBelow(Walk walk, bool isNew, StampedChange change) const;
    void endWalk();

    // Results
    void report(Watch watch);
    void markPending();
    void dropStrays();
    void removeUnseen();
    void noteFailure(int error);
    void logLimit();

    Inotify inotify_;
    WatchTree tree_;
    ChangeCutoff cutoff_;
    std::vector<std::optional<Identity>> foldersAtFirst_;
    DebugLogger logDebug_;
    DirectoryReader reader_;
    std::deque<WalkStep> walks_;   // the directories that are still to be walked
    std::vector<Watch> reported_;  // the changes that `takeChanges()` has not taken yet
    std::optional<Clock::time_point> pendingSince_;
    std::optional<Clock::time_point> retryAt_;
    std::chrono::seconds retryPause_ = minimumRetryPause;
    bool isFirstWalk_ = true;  // until a walk has seen everything
    bool walksAgain_ = false;
    bool hasStrays_ = false;  // watched directories that may no longer be below a folder
    bool lostEvents_ = false;
    bool loggedLimit_ = false;
};

}  // namespace glintmark::platform
