#pragma once

#include <sys/stat.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "linux/files/DirectoryReader.h"
#include "linux/watching/Inotify.h"
#include "linux/watching/WatchTree.h"
#include "platform/EventStream.h"

namespace glintmark::platform {

/// Watches every directory below a list of folders and collects which of them changed. One thread;
/// nothing waits.
///
/// A change is a name that appears: made, linked or moved in. What a file holds, its attributes and
/// its removal are none, so writing and cleaning up cost nothing.
class TreeWatches {
public:
    using Clock = std::chrono::steady_clock;
    using Note = std::function<void(std::string_view)>;

    /// Changes before this call do not count. `note` gets a line for those who debug the program.
    TreeWatches(Inotify inotify, std::vector<std::string> folders, Note note);

    int descriptor() const { return inotify_.descriptor(); }

    /// Takes up the folders as they are at the beginning.
    void takeUpFolders();

    /// Takes up what lies at a folder's path now: something may have come, gone or been replaced.
    void takeUpFolderAnew(std::size_t folder);

    /// Walks all trees from their beginning, after something of which no event tells.
    void walkAgain();

    /// Handles what has happened.
    void readEvents();

    /// Whether directories wait to be walked, and walks some of them.
    bool isWalking() const { return (isFirstWalk_ && !retryAt_) || walksAgain_ || !walks_.empty(); }
    void walkOn();

    /// When all is to be walked again because the system refused something that it may grant then,
    /// such as a descriptor; absent when it did not.
    std::optional<Clock::time_point> retryAt() const { return retryAt_; }
    void retryWhenDue();

    /// When the oldest change that still waits was found; absent when nothing waits.
    std::optional<Clock::time_point> waitingSince() const { return waitingSince_; }

    /// What changed since the last time, each directory once by each of its spellings.
    std::vector<DirectoryEvent> takeChanges();

    std::size_t watchCount() const { return tree_.size(); }

private:
    using Watch = WatchTree::Watch;

    /// What the walk of a directory takes for changed.
    enum class Walk {
        initial,  ///< Directories with a change since the beginning.
        arrived,  ///< Directories that were not watched before.
        moved,    ///< All: each has a new path, which makes all its files new.
        again,  ///< Directories not watched before, and those with a change since events were lost.
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
        bool countsLinks = false;  // link counts on its file system tell of directories
        dev_t device = 0;
    };

    Watch watchDirectory(const std::string& path, std::uint32_t extraFlags);
    void handle(const InotifyEvent& event);
    void handleName(const InotifyEvent& event);
    void handleMove(Watch watch);
    void handleUnmount(Watch watch);
    void handleLoss();
    void takeUpFolder(std::size_t folder, Walk walk);
    void releaseFolder(std::size_t folder);
    void walk(const WalkStep& step);
    Watch enter(const Place& place, const std::string& name, Walk walk);
    void enterAt(Watch parent, const std::string& name, Walk walk);
    bool isChange(Walk& walk, bool isNew, const struct statx& status) const;
    timespec firstStamp() const;
    void endWalk();
    void dropStrays();
    void removeUnseen();
    void report(Watch watch);
    void wait();
    void noteLimit();
    void noteFailure(int error);
    void countChangesSinceQuiet();

    Inotify inotify_;
    WatchTree tree_;
    timespec since_;                               // changes from then on count
    Clock::time_point countsFrom_ = Clock::now();  // the same by a clock that nobody sets
    std::vector<std::array<std::uint64_t, 3>> foldersAtFirst_;  // devices and inodes
    Note note_;
    DirectoryReader reader_;
    std::deque<WalkStep> walks_;
    std::vector<Watch> pending_;
    std::optional<Clock::time_point> waitingSince_;
    timespec quietAt_;  // no event was waiting then, by the clock of the time stamps
    Clock::time_point quietSince_ = Clock::now();
    std::optional<Clock::time_point> retryAt_;
    std::chrono::seconds retryPause_;
    bool isFirstWalk_ = true;  // until one has seen everything
    bool walksAgain_ = false;
    bool hasStrays_ = false;
    bool lostEvents_ = false;
    bool notedLimit_ = false;
};

}  // namespace glintmark::platform
