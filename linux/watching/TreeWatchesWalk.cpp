#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "base/system/FilePath.h"
#include "linux/watching/TreeWatches.h"

// How the trees are walked, and how a walk treats each directory.

namespace glintmark::platform {

namespace {

constexpr int directoriesAtOnce = 16;  // walked between two reads of the events
constexpr int entriesAtOnce = 256;

constexpr nlink_t linksOfALeaf = 2;  // its name and its own "."

/// File systems whose directories have one link more for each directory in them.
constexpr std::array<decltype(statfs::f_type), 3> linkCountingSystems = {
    EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC, TMPFS_MAGIC};

bool countsLinks(int descriptor) {
    struct statfs system {};
    return ::fstatfs(descriptor, &system) == 0 &&
           std::find(linkCountingSystems.begin(), linkCountingSystems.end(), system.f_type) !=
               linkCountingSystems.end();
}

}  // namespace

struct statx TreeWatches::statusOf(int descriptor, const std::string& path, int flags) {
    struct statx status {};
    constexpr unsigned fields = STATX_NLINK | STATX_CTIME | STATX_MTIME | STATX_BTIME | STATX_INO;
    if (::statx(descriptor, path.c_str(), flags | AT_NO_AUTOMOUNT, fields, &status) != 0) {
        status = {};  // gone already: unchanged, and no leaf
    }
    return status;
}

struct statx TreeWatches::statusIn(const Place& place, const std::string& name) {
    if (place.descriptor >= 0) {
        return statusOf(place.descriptor, name, AT_SYMLINK_NOFOLLOW);
    }
    return statusOf(AT_FDCWD, appendPathComponent(place.path, name), AT_SYMLINK_NOFOLLOW);
}

TreeWatches::Identity TreeWatches::identityOf(const struct statx& status) {
    return {status.stx_dev_major, status.stx_dev_minor, status.stx_ino};
}

/// True if the directory, found at `place`, certainly holds no directories.
bool TreeWatches::isLeaf(const Place& place, const struct statx& status) {
    return place.countsLinks && status.stx_nlink == linksOfALeaf &&
           makedev(status.stx_dev_major, status.stx_dev_minor) == place.device;
}

void TreeWatches::walkAgain() {
    if (!isWalking() && !retryAt_) {
        cutoff_.moveToQuiet();
    }
    reportDeliveredAgain();
    noteUnfinished();
    walks_.clear();
    walksAgain_ = true;
    tree_.setAllUnseen();
    for (std::size_t i = 0; i < tree_.folders().size(); ++i) {
        const auto watch = tree_.folderWatch(i);
        if (watch == WatchTree::noWatch || tree_.isSeen(watch)) {
            continue;
        }
        tree_.unlinkAll(watch);
        tree_.setSeen(watch, true);
        const auto status = statusOf(AT_FDCWD, tree_.folders()[i], 0);
        if (cutoff_.changeIn(status, ChangeCutoff::exactNow()) != StampedChange::none) {
            report(watch);
        }
        walks_.push_back({watch, unfinished_.contains(watch) ? Walk::moved : Walk::again});
    }
}

/// True if a new walk must take for moved what this kind of walk finds. An arrived directory needs
/// that only before the first walk has ended: later, a new walk reports all directories that it
/// finds new.
bool TreeWatches::meansMoved(Walk walk) const {
    return walk == Walk::moved || (walk == Walk::arrived && isFirstWalk_);
}

/// The new walk must report what the steps that it replaces would have reported.
void TreeWatches::noteUnfinished() {
    for (const auto& step : walks_) {
        if (meansMoved(step.walk)) {
            unfinished_.insert(step.watch);
        }
    }
}

void TreeWatches::continueWalk() {
    for (int i = 0; i < directoriesAtOnce && !walks_.empty(); ++i) {
        const auto step = walks_.front();
        walks_.pop_front();
        walk(step);
    }
    if (walks_.empty()) {
        endWalk();
    }
}

void TreeWatches::walk(const WalkStep& step) {
    if (!tree_.contains(step.watch)) {
        return;
    }
    const auto path = tree_.anyPath(step.watch);
    // A watched folder may be a symbolic link. Links below one are not followed.
    const int linkFlag = tree_.isFolder(step.watch) ? 0 : O_NOFOLLOW;
    const FileDescriptor directory(
        ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | linkFlag));
    struct stat status {};
    if (!directory || ::fstat(directory.get(), &status) != 0) {
        noteFailure(errno);
        noteIfClosed(step.watch, path);
    } else {
        readDirectory({.watch = step.watch,
                       .path = path,
                       .descriptor = directory.get(),
                       .countsLinks = countsLinks(directory.get()),
                       .device = status.st_dev},
                      step.walk);
    }
    if (step.walk == Walk::moved && retryAt_) {
        unfinished_.insert(step.watch);  // the retry must not take it for an old directory
    }
}

void TreeWatches::readDirectory(const Place& place, Walk walk) {
    reader_.begin(place.descriptor);
    DirectoryReader::Entry entry{};
    for (int count = 1; reader_.next(entry) && tree_.contains(place.watch); ++count) {
        if (entry.type == DT_DIR || entry.type == DT_UNKNOWN) {
            visit(place, std::string(entry.name), walk);
        }
        if (count % entriesAtOnce == 0) {
            readEvents();
        }
    }
    if (reader_.failed()) {
        noteFailure(errno);
    }
}

/// Watches `name`, if it is a directory, and walks it afterwards: a name that appears in it is then
/// found by the walk or has an event.
void TreeWatches::visit(const Place& place, const std::string& name, Walk walk) {
    const auto watch = watchDirectory(appendPathComponent(place.path, name), IN_DONT_FOLLOW);
    if (watch == WatchTree::noWatch) {
        noteIfClosed(place.watch, place.path);
        return;
    }
    const bool isNew = tree_.add(watch);
    const bool isFirstVisit = isNew || !tree_.isSeen(watch);
    const bool isKnownElsewhere = !isNew && !tree_.isLinked(watch, place.watch, name);
    if (isKnownElsewhere && !isInKnownPlace(watch)) {
        // No event told of its arrival here, for example in a directory made just before.
        walk = Walk::moved;
    }
    if (walksAgain_) {
        const bool isMoved =
            meansMoved(walk) || (isFirstVisit && isKnownElsewhere) || unfinished_.contains(watch);
        walk = isMoved ? Walk::moved : Walk::again;
        if (isFirstVisit) {
            tree_.unlinkAll(watch);  // links from before this walk may be out of date
        }
    }
    const bool endsInACircle = tree_.link(watch, place.watch, name) == WatchTree::Linked::refused;
    if (tree_.hasSeveralLinks(watch)) {
        dropLinksThatDoNotHold(watch);
    }
    tree_.setSeen(watch, true);
    if (endsInACircle && !walksAgain_) {
        // Either a link above is out of date, which a new walk corrects, or a directory is mounted
        // below itself, which the new walk finds again and leaves as it is.
        if (meansMoved(walk)) {
            unfinished_.insert(watch);
        }
        walkAgain();
        return;
    }
    const bool isMoved = walk == Walk::moved && !endsInACircle;
    if (!isNew && !isMoved && !(walksAgain_ && isFirstVisit)) {
        return;
    }
    const auto status = statusIn(place, name);
    const auto change = cutoff_.changeIn(status, ChangeCutoff::exactNow());
    if (isChanged(walk, isNew, change)) {
        report(watch);
    }
    if (!isLeaf(place, status)) {
        walks_.push_back({watch, walkBelow(walk, isNew, change)});
    }
}

void TreeWatches::visitIn(Watch parent, const std::string& name, Walk walk) {
    const auto path = tree_.anyPath(parent);
    if (path.empty()) {
        return;  // moved out; if it is moved back, all of it is walked
    }
    visit({.watch = parent, .path = path}, name, walk);
}

/// True if the directory still is where its links, or a watched folder's path, say.
bool TreeWatches::isInKnownPlace(Watch watch) {
    for (std::size_t i = 0; i < tree_.folders().size(); ++i) {
        if (tree_.folderWatch(i) == watch && watchDirectory(tree_.folders()[i], 0) == watch) {
            return true;
        }
    }
    const auto links = tree_.links(watch);
    return std::any_of(links.begin(), links.end(),
                       [&](const WatchTree::Link& link) { return holds(watch, link); });
}

/// True if the directory that the link's path names now is `watch`.
bool TreeWatches::holds(Watch watch, const WatchTree::Link& link) {
    const auto path = tree_.anyPath(link.parent);
    return !path.empty() &&
           watchDirectory(appendPathComponent(path, link.name), IN_DONT_FOLLOW) == watch;
}

/// An event that was handled when its directory had already moved may have led to another
/// directory, and linked that.
void TreeWatches::dropLinksThatDoNotHold(Watch watch) {
    for (const auto& link : tree_.links(watch)) {
        if (!holds(watch, link)) {
            tree_.unlink(watch, link.parent, link.name);
        }
    }
}

/// True if a directory that a walk found counts as changed.
bool TreeWatches::isChanged(Walk walk, bool isNew, StampedChange change) const {
    switch (walk) {
        case Walk::initial:
            return change != StampedChange::none;
        case Walk::again:
            return change != StampedChange::none || (isNew && !isFirstWalk_);
        case Walk::arrived:
            return isNew;
        case Walk::moved:
            return true;
    }
    return false;
}

/// The kind of walk for the directories below a directory that a walk found. If the directory
/// itself arrived before the first walk reached it, all directories below it arrived, too.
TreeWatches::Walk TreeWatches::walkBelow(Walk walk, bool isNew, StampedChange change) const {
    if (change != StampedChange::arrival) {
        return walk;
    }
    if (walk == Walk::initial) {
        return Walk::arrived;
    }
    if (walk == Walk::again && isNew && isFirstWalk_) {
        return Walk::moved;
    }
    return walk;
}

void TreeWatches::endWalk() {
    const bool sawAll = !retryAt_;
    const bool walkedAgain = std::exchange(walksAgain_, false);
    if (!sawAll) {
        return;
    }
    isFirstWalk_ = false;
    unfinished_.clear();
    retryPause_ = minimumRetryPause;
    if (walkedAgain) {
        removeUnseen();
    }
}

}  // namespace glintmark::platform
