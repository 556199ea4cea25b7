#include "linux/watching/TreeWatches.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <unordered_set>
#include <utility>

#include "base/system/FilePath.h"

// The folders, the events and the results. The walks are in TreeWatchesWalk.cpp.

namespace glintmark::platform {

namespace {

// IN_MOVE_SELF: the directory itself was moved. The kernel also always sends IN_IGNORED: the
// directory was removed. Without IN_MODIFY a long download costs nothing until it ends.
constexpr std::uint32_t watchedEvents = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE |
                                        IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVE_SELF | IN_ONLYDIR;

/// Errors that a retry does not cure. ENOSPC (no watches left) has a log line.
constexpr std::array lastingErrors = {ENOENT, ENOTDIR, EACCES, EPERM, ELOOP, ENAMETOOLONG, ENOSPC};

}  // namespace

TreeWatches::TreeWatches(Inotify inotify, std::vector<std::string> folders, DebugLogger logDebug)
    : inotify_(std::move(inotify)),
      tree_(std::move(folders)),
      cutoff_(ChangeCutoff::stampNow()),
      foldersAtFirst_(folderIdentities(tree_.folders())),
      logDebug_(std::move(logDebug)) {}

void TreeWatches::watchFolders() {
    // All folders before any tree, so that a huge tree cannot use up the watches of the others.
    for (std::size_t i = 0; i < tree_.folders().size(); ++i) {
        watchFolder(i, Walk::initial);
    }
}

void TreeWatches::rewatchAll() {
    walkAgain();
    for (std::size_t i = 0; i < tree_.folders().size(); ++i) {
        watchFolder(i, Walk::again);
    }
}

void TreeWatches::watchFolder(std::size_t folder, Walk walk) {
    const auto& path = tree_.folders()[folder];
    const auto watch = watchDirectory(path, 0);
    const bool isReplaced = watch != tree_.folderWatch(folder);
    if (isReplaced) {
        releaseFolder(folder);
    }
    if (watch == WatchTree::noWatch) {
        return;
    }
    const bool isNew = tree_.add(watch);
    if (walk == Walk::again && isReplaced && !isNew) {
        walk = Walk::moved;  // it was watched elsewhere
    }
    tree_.setFolderWatch(folder, watch);
    tree_.setSeen(watch, true);
    const auto status = statusOf(AT_FDCWD, path, 0);
    const auto& first = foldersAtFirst_[folder];
    if (walk == Walk::initial && first && identityOf(status) != *first) {
        walk = Walk::moved;  // time stamps do not show that a directory above it was moved
    }
    if (walk != Walk::initial) {
        report(watch);
        walks_.push_back({watch, walk});
        return;
    }
    const auto change = cutoff_.changeIn(status, ChangeCutoff::exactNow());
    if (isChanged(walk, isNew, change)) {
        report(watch);
    }
    walk = walkBelow(walk, isNew, change);
    if (isNew || walk != Walk::initial) {  // else it is walked under another path
        walks_.push_back({watch, walk});
    }
}

void TreeWatches::releaseFolder(std::size_t folder) {
    if (tree_.folderWatch(folder) != WatchTree::noWatch) {
        tree_.setFolderWatch(folder, WatchTree::noWatch);
        hasStrays_ = true;
        markPending();
    }
}

TreeWatches::Watch TreeWatches::watchDirectory(const std::string& path, std::uint32_t extraFlags) {
    const int watch = inotify_.add(path, watchedEvents | extraFlags);
    if (watch >= 0) {
        return watch;
    }
    const int error = errno;
    if (error == ENOSPC) {
        logLimit();
    }
    noteFailure(error);
    return WatchTree::noWatch;
}

bool TreeWatches::readEvents() {
    const auto before = ChangeCutoff::stampNow();
    bool hasRead = false;
    inotify_.read([&](const InotifyEvent& event) {
        hasRead = true;
        handle(event);
    });
    cutoff_.noteQuiet(before);
    return hasRead;
}

void TreeWatches::handle(const InotifyEvent& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        handleLoss();
    } else if (!tree_.contains(event.watch)) {
        return;  // the watch was removed
    } else if ((event.mask & IN_IGNORED) != 0) {
        forget(event.watch);
    } else if ((event.mask & IN_UNMOUNT) != 0) {
        handleUnmount(event.watch);
    } else if ((event.mask & IN_MOVE_SELF) != 0) {
        handleMove(event.watch);
    } else if (event.name.empty()) {
        handleOwnAttributes(event.watch);
    } else {
        handleName(event);
    }
}

void TreeWatches::handleName(const InotifyEvent& event) {
    report(event.watch);
    // A directory with other attributes may be readable only now.
    constexpr std::uint32_t arrivals = IN_CREATE | IN_MOVED_TO | IN_ATTRIB;
    if ((event.mask & IN_ISDIR) != 0 && (event.mask & arrivals) != 0) {
        const bool isMove = (event.mask & IN_MOVED_TO) != 0;
        visitIn(event.watch, std::string(event.name), isMove ? Walk::moved : Walk::arrived);
    }
}

/// The receiver could list nothing in a directory, or below it, while it was closed. So when it is
/// open again, everything in it counts as changed.
void TreeWatches::handleOwnAttributes(Watch watch) {
    report(watch);
    if (!noteIfClosed(watch, tree_.anyPath(watch)) && closed_.erase(watch) > 0) {
        walks_.push_back({watch, Walk::moved});
    }
}

/// True if the user may not read or search the directory now.
bool TreeWatches::noteIfClosed(Watch watch, const std::string& path) {
    const bool isClosed =
        ::faccessat(AT_FDCWD, path.c_str(), R_OK | X_OK, AT_EACCESS) != 0 && errno == EACCES;
    if (isClosed) {
        closed_.insert(watch);
    }
    return isClosed;
}

/// The file system, not the events, decides which links of a moved directory still hold: the events
/// of several moves may arrive in any order, and if only the source or the target of a move is
/// watched, half of the move has no event. A look-up that fails because a directory above has moved
/// in the meantime does no harm: that directory's own event arrives later, and all directories
/// below it are then walked.
void TreeWatches::handleMove(Watch watch) {
    for (const auto& link : tree_.links(watch)) {
        if (!holds(watch, link)) {
            tree_.unlink(watch, link.parent, link.name);
            visitIn(link.parent, link.name, Walk::arrived);  // its replacement, if there is one
        }
    }
    hasStrays_ = true;
    markPending();
}

void TreeWatches::handleUnmount(Watch watch) {
    const auto links = tree_.links(watch);
    forget(watch);
    for (const auto& [parent, name] : links) {
        visitIn(parent, name, Walk::arrived);  // the directory that the mount hid
    }
}

void TreeWatches::handleLoss() {
    lostEvents_ = true;
    markPending();
    walkAgain();
}

void TreeWatches::retryIfDue() {
    if (isWalking() || !retryAt_ || *retryAt_ > Clock::now()) {
        return;
    }
    walkAgain();
    retryAt_.reset();
    for (std::size_t i = 0; i < tree_.folders().size(); ++i) {
        if (tree_.folderWatch(i) == WatchTree::noWatch) {
            watchFolder(i, Walk::again);
        }
    }
}

std::vector<DirectoryEvent> TreeWatches::takeChanges() {
    pendingSince_.reset();
    if (walks_.empty()) {
        dropStrays();
    } else if (hasStrays_) {
        markPending();  // the walk may still find their place
    }
    std::vector<DirectoryEvent> changes;
    if (std::exchange(lostEvents_, false)) {
        changes.push_back({tree_.folders().front(), mustScanSubDirs});
    }
    std::unordered_set<std::string> taken;
    auto directories = std::exchange(reported_, {});
    for (const auto watch : directories) {
        if (!tree_.contains(watch) || !tree_.isReported(watch)) {
            continue;
        }
        tree_.setReported(watch, false);
        for (auto& path : tree_.paths(watch)) {
            if (taken.insert(path).second) {
                changes.push_back({std::move(path), 0});
            }
        }
    }
    const auto now = Clock::now();
    while (!delivered_.empty() && delivered_.front().time + maximumListingDelay < now) {
        delivered_.pop_front();
    }
    delivered_.push_back({now, std::move(directories)});
    return changes;
}

void TreeWatches::report(Watch watch) {
    if (!tree_.isReported(watch)) {
        tree_.setReported(watch, true);
        reported_.push_back(watch);
        markPending();
    }
}

/// If a directory was away while the receiver wanted to list it, and the event of its return was
/// lost, nothing else leads to the files in it.
void TreeWatches::reportDeliveredAgain() {
    for (const auto& delivery : delivered_) {
        for (const auto watch : delivery.directories) {
            if (tree_.contains(watch)) {
                report(watch);
            }
        }
    }
}

void TreeWatches::markPending() {
    if (!pendingSince_) {
        pendingSince_ = Clock::now();
    }
}

void TreeWatches::dropStrays() {
    if (std::exchange(hasStrays_, false)) {
        tree_.markReachable();
        removeUnseen();
    }
}

void TreeWatches::removeUnseen() {
    for (const auto watch : tree_.unseen()) {
        inotify_.remove(watch);
        forget(watch);
    }
}

void TreeWatches::forget(Watch watch) {
    tree_.remove(watch);
    closed_.erase(watch);
}

void TreeWatches::noteFailure(int error) {
    const bool isLasting =
        std::find(lastingErrors.begin(), lastingErrors.end(), error) != lastingErrors.end();
    if (isLasting || retryAt_) {
        return;
    }
    if (!isWalking()) {
        cutoff_.moveToQuiet();
    }
    retryAt_ = Clock::now() + retryPause_;
    retryPause_ = std::min(2 * retryPause_, maximumRetryPause);
}

void TreeWatches::logLimit() {
    if (!std::exchange(loggedLimit_, true)) {
        logDebug_(
            "Event stream: the system gives no more than " + std::to_string(watchCount()) +
            " watches (fs.inotify.max_user_watches); directories beyond them are not watched");
    }
}

}  // namespace glintmark::platform
