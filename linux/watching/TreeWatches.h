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
#include <unordered_set>
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
/// A directory has changed when an entry of it was made, linked, moved in or out, renamed, removed,
/// written and closed, or given other attributes. Each single write is not a change.
class TreeWatches {
public:
    using Clock = ChangeCutoff::Clock;
    using DebugLogger = std::function<void(std::string_view line)>;

    /// Only changes after this call count.
    TreeWatches(Inotify inotify, std::vector<std::string> folders, DebugLogger logDebug);

    int descriptor() const { return inotify_.descriptor(); }

    /// Watches the folders and begins the first walk.
    void watchFolders();

    /// Watches and walks the directory that a folder's path names now. It may be a new one, or one
    /// that was put back, so everything below it counts as changed.
    void rewatchFolder(std::size_t folder) { watchFolder(folder, Walk::moved); }

    /// Watches the directories that the folders' paths name now and begins to walk all trees again:
    /// something happened that no event reports.
    void rewatchAll();

    /// Handles the events that have arrived. False if there were none.
    bool readEvents();

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

    /// The directories that one call of `takeChanges()` returned.
    struct Delivery {
        Clock::time_point time;
        std::vector<Watch> directories;
    };

    // The receiver lists a directory this long after its delivery at the latest.
    static constexpr std::chrono::seconds maximumListingDelay{5};

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
    void handleOwnAttributes(Watch watch);
    bool noteIfClosed(Watch watch, const std::string& path);
    void handleMove(Watch watch);
    void handleUnmount(Watch watch);
    void handleLoss();

    // Walks
    void walkAgain();
    void noteUnfinished();
    bool meansMoved(Walk walk) const;
    void walk(const WalkStep& step);
    void readDirectory(const Place& place, Walk walk);
    void visit(const Place& place, const std::string& name, Walk walk);
    void visitIn(Watch parent, const std::string& name, Walk walk);
    bool isInKnownPlace(Watch watch);
    bool holds(Watch watch, const WatchTree::Link& link);
    void dropLinksThatDoNotHold(Watch watch);
    bool isChanged(Walk walk, bool isNew, StampedChange change) const;
    Walk walkBelow(Walk walk, bool isNew, StampedChange change) const;
    void endWalk();

    // Results
    void report(Watch watch);
    void reportDeliveredAgain();
    void markPending();
    void dropStrays();
    void removeUnseen();
    void forget(Watch watch);
    void noteFailure(int error);
    void logLimit();

    Inotify inotify_;
    WatchTree tree_;
    ChangeCutoff cutoff_;
    std::vector<std::optional<Identity>> foldersAtFirst_;
    DebugLogger logDebug_;
    DirectoryReader reader_;
    std::deque<WalkStep> walks_;            // the directories that are still to be walked
    std::unordered_set<Watch> closed_;      // are watched, but may not be read or searched
    std::unordered_set<Watch> unfinished_;  // everything below them counts as changed, and no walk
                                            // has been there
    std::vector<Watch> reported_;           // the changes that `takeChanges()` has not taken yet
    std::deque<Delivery> delivered_;        // lately; the receiver may not have listed them yet
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
