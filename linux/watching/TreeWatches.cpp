#include "linux/watching/TreeWatches.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "base/system/FilePath.h"

namespace glintmark::platform {

namespace {

// IN_MOVE_SELF tells that a directory lies elsewhere now, and IN_IGNORED, which comes unasked, that
// it is no more. Nothing else is needed to keep the tree right.
constexpr std::uint32_t watchedEvents = IN_CREATE | IN_MOVED_TO | IN_MOVE_SELF | IN_ONLYDIR;

constexpr int directoriesAtOnce = 16;  // walked between two looks at the events
constexpr int entriesAtOnce = 256;

constexpr nlink_t linksOfALeaf = 2;  // its name and its own "."

/// File systems whose directories have one link more for each directory in them.
constexpr std::array<decltype(statfs::f_type), 3> linkCountingSystems = {
    EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC, TMPFS_MAGIC};

// A file system that is broken for good shall cost next to nothing.
constexpr std::chrono::seconds shortestRetryPause{1};
constexpr std::chrono::seconds longestRetryPause = std::chrono::hours(1);

/// What trying again does not help against; that the watches are used up is told by itself.
constexpr std::array lastingErrors = {ENOENT, ENOTDIR, EACCES, EPERM, ELOOP, ENAMETOOLONG, ENOSPC};

constexpr std::int64_t coarsestTimestamp = 2;  // seconds, on FAT

constexpr std::chrono::milliseconds coarseness{10};  // of the clock below, at 100 Hz

timespec coarseNow() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);  // the clock of the time stamps in inodes
    return now;
}

std::chrono::nanoseconds sinceEpoch(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// In doubt yes: a stamp of whole seconds is taken for a coarse one.
bool isSince(const statx_timestamp& stamp, const timespec& since) {
    if (stamp.tv_nsec == 0) {
        return stamp.tv_sec + coarsestTimestamp >= since.tv_sec;
    }
    return std::tuple(stamp.tv_sec, std::int64_t{stamp.tv_nsec}) >=
           std::tuple(std::int64_t{since.tv_sec}, std::int64_t{since.tv_nsec});
}

/// Whether a directory that changed was itself made or moved here: the move of a directory renews
/// its change time alone, a new name in it renews its modification time as well.
bool hasArrivedSince(const struct statx& status, const timespec& since) {
    const bool isNew = (status.stx_mask & STATX_BTIME) != 0 && isSince(status.stx_btime, since);
    return isNew || !isSince(status.stx_mtime, since);
}

struct statx statusOf(int descriptor, const std::string& path, int flags) {
    struct statx status {};
    constexpr unsigned fields = STATX_NLINK | STATX_CTIME | STATX_MTIME | STATX_BTIME | STATX_INO;
    if (::statx(descriptor, path.c_str(), flags | AT_NO_AUTOMOUNT, fields, &status) != 0) {
        status = {};  // gone already: unchanged, and no leaf
    }
    return status;
}

/// What a path leads to; zeros when that is nothing.
std::array<std::uint64_t, 3> identityOf(const struct statx& status) {
    return {status.stx_dev_major, status.stx_dev_minor, status.stx_ino};
}

bool countsLinks(int descriptor) {
    struct statfs system {};
    return ::fstatfs(descriptor, &system) == 0 &&
           std::find(linkCountingSystems.begin(), linkCountingSystems.end(), system.f_type) !=
               linkCountingSystems.end();
}

}  // namespace

TreeWatches::TreeWatches(Inotify inotify, std::vector<std::string> folders, Note note)
    : inotify_(std::move(inotify)),
      tree_(std::move(folders)),
      since_(coarseNow()),
      note_(std::move(note)),
      quietAt_(since_),
      retryPause_(shortestRetryPause) {
    for (const auto& folder : tree_.folders()) {
        foldersAtFirst_.push_back(identityOf(statusOf(AT_FDCWD, folder, 0)));
    }
}

void TreeWatches::takeUpFolders() {
    // All folders before any tree, so that a huge tree cannot use up the watches of the others.
    for (std::size_t i = 0; i < tree_.folders().size(); ++i) {
        takeUpFolder(i, Walk::initial);
    }
}

void TreeWatches::takeUpFolderAnew(std::size_t folder) {
    takeUpFolder(folder, walksAgain_ ? Walk::again : Walk::moved);
}

void TreeWatches::takeUpFolder(std::size_t folder, Walk walk) {
    const auto& path = tree_.folders()[folder];
    const auto watch = watchDirectory(path, 0);
    if (watch != tree_.folderWatch(folder)) {
        releaseFolder(folder);
    }
    if (watch == WatchTree::noWatch) {
        return;
    }
    const bool isNew = tree_.add(watch);
    tree_.setFolderWatch(folder, watch);
    tree_.setSeen(watch, true);
    const auto status = statusOf(AT_FDCWD, path, 0);
    if (walk == Walk::initial && identityOf(status) != foldersAtFirst_[folder]) {
        walk = Walk::moved;  // no stamp of its own tells when a directory above it has moved
    }
    if (walk != Walk::initial || isChange(walk, isNew, status)) {
        report(watch);
    }
    if (isNew || walk != Walk::initial) {
        walks_.push_back({watch, walk});
    }
}

void TreeWatches::releaseFolder(std::size_t folder) {
    if (tree_.folderWatch(folder) != WatchTree::noWatch) {
        tree_.setFolderWatch(folder, WatchTree::noWatch);
        hasStrays_ = true;
        wait();
    }
}

void TreeWatches::readEvents() {
    const auto before = coarseNow();
    const auto sinceThen = Clock::now();
    inotify_.read([this](const InotifyEvent& event) { handle(event); });
    quietAt_ = before;
    quietSince_ = sinceThen;
}

void TreeWatches::handle(const InotifyEvent& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        handleLoss();
    } else if (!tree_.contains(event.watch)) {
        return;  // of a watch that was given up
    } else if ((event.mask & IN_IGNORED) != 0) {
        tree_.remove(event.watch);
    } else if ((event.mask & IN_UNMOUNT) != 0) {
        handleUnmount(event.watch);
    } else if ((event.mask & IN_MOVE_SELF) != 0) {
        handleMove(event.watch);
    } else {
        handleName(event);
    }
}

void TreeWatches::handleName(const InotifyEvent& event) {
    report(event.watch);
    if ((event.mask & IN_ISDIR) != 0) {
        const bool isMove = (event.mask & IN_MOVED_TO) != 0;
        enterAt(event.watch, std::string(event.name), isMove ? Walk::moved : Walk::arrived);
    }
}

/// The file system, not the events, says which links of a moved directory still hold: events of
/// several moves may be told in any order, and half of a move is told where only one end is
/// watched. A look-up that fails because a directory above has moved meanwhile does no harm: that
/// directory's own move is told later, and leads through all below it.
void TreeWatches::handleMove(Watch watch) {
    for (const auto& [parent, name] : tree_.links(watch)) {
        const auto parentPath = tree_.anyPath(parent);
        const bool holds =
            !parentPath.empty() &&
            watchDirectory(appendPathComponent(parentPath, name), IN_DONT_FOLLOW) == watch;
        if (!holds) {
            tree_.unlink(watch, parent, name);
            enterAt(parent, name, Walk::arrived);  // what took its place, if anything
        }
    }
    hasStrays_ = true;
    wait();
}

void TreeWatches::handleUnmount(Watch watch) {
    const auto links = tree_.links(watch);
    tree_.remove(watch);
    for (const auto& [parent, name] : links) {
        enterAt(parent, name, Walk::arrived);  // what the mount has hidden
    }
}

void TreeWatches::handleLoss() {
    lostEvents_ = true;
    wait();
    walkAgain();
}

void TreeWatches::walkAgain() {
    if (!isWalking() && !retryAt_) {
        countChangesSinceQuiet();
    }
    walks_.clear();
    walksAgain_ = true;
    tree_.setAllUnseen();
    for (std::size_t i = 0; i < tree_.folders().size(); ++i) {
        const auto watch = tree_.folderWatch(i);
        if (watch != WatchTree::noWatch && !tree_.isSeen(watch)) {
            tree_.unlinkAll(watch);
            tree_.setSeen(watch, true);
            auto walk = Walk::again;
            if (isChange(walk, false, statusOf(AT_FDCWD, tree_.folders()[i], 0))) {
                report(watch);
            }
            walks_.push_back({watch, walk});
        }
    }
}

void TreeWatches::retryWhenDue() {
    if (isWalking() || !retryAt_ || *retryAt_ > Clock::now()) {
        return;
    }
    walkAgain();
    retryAt_.reset();
    for (std::size_t i = 0; i < tree_.folders().size(); ++i) {
        if (tree_.folderWatch(i) == WatchTree::noWatch) {
            takeUpFolder(i, Walk::again);
        }
    }
}

void TreeWatches::walkOn() {
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
    // A watched folder may be a symbolic link; what lies below one is not followed.
    const int linkFlag = tree_.isFolder(step.watch) ? 0 : O_NOFOLLOW;
    const FileDescriptor directory(
        ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | linkFlag));
    struct stat status {};
    if (!directory || ::fstat(directory.get(), &status) != 0) {
        noteFailure(errno);
        return;
    }
    const Place place{step.watch, path, directory.get(), countsLinks(directory.get()),
                      status.st_dev};
    reader_.begin(directory.get());
    DirectoryReader::Entry entry{};
    for (int count = 1; reader_.next(entry) && tree_.contains(step.watch); ++count) {
        if (entry.type == DT_DIR || entry.type == DT_UNKNOWN) {
            enter(place, std::string(entry.name), step.walk);
        }
        if (count % entriesAtOnce == 0) {
            readEvents();
        }
    }
    if (reader_.failed()) {
        noteFailure(errno);
    }
}

/// Takes up the directory `name`, if it is one: watches it first and looks into it afterwards, so
/// that what appears in it is either seen then or told as an event.
TreeWatches::Watch TreeWatches::enter(const Place& place, const std::string& name, Walk walk) {
    const auto path = appendPathComponent(place.path, name);
    const auto watch = watchDirectory(path, IN_DONT_FOLLOW);
    if (watch == WatchTree::noWatch) {
        return watch;
    }
    walk = walksAgain_ && walk != Walk::moved ? Walk::again : walk;
    const bool isNew = tree_.add(watch);
    const bool isFirstSight = isNew || !tree_.isSeen(watch);
    if (walksAgain_ && isFirstSight) {
        if (!isNew && !tree_.isLinked(watch, place.watch, name)) {
            walk = Walk::moved;
        }
        tree_.unlinkAll(watch);  // what is known from before the loss may be wrong
    }
    const auto linked = tree_.link(watch, place.watch, name);
    tree_.setSeen(watch, true);
    if (linked == WatchTree::Linked::refused && !walksAgain_) {
        // Either a link above is out of date, which a walk sets right, or a directory is mounted
        // below itself, which that walk finds again and leaves at that.
        walkAgain();
        return watch;
    }
    // A link that was refused leads in a circle.
    const bool isMoved = walk == Walk::moved && linked != WatchTree::Linked::refused;
    const bool goesOn = isNew || isMoved || (walksAgain_ && isFirstSight);
    if (!goesOn) {
        return watch;
    }
    const bool isOpen = place.descriptor >= 0;
    const auto status =
        statusOf(isOpen ? place.descriptor : AT_FDCWD, isOpen ? name : path, AT_SYMLINK_NOFOLLOW);
    if (isChange(walk, isNew, status)) {
        report(watch);
    }
    const bool isLeaf = place.countsLinks && status.stx_nlink == linksOfALeaf &&
                        makedev(status.stx_dev_major, status.stx_dev_minor) == place.device;
    if (!isLeaf) {
        walks_.push_back({watch, walk});
    }
    return watch;
}

void TreeWatches::enterAt(Watch parent, const std::string& name, Walk walk) {
    const auto path = tree_.anyPath(parent);
    if (path.empty()) {
        return;  // moved out; if it comes back, all of it is walked
    }
    enter({.watch = parent, .path = path}, name, walk);
}

/// Whether what is known of a directory found by a walk makes it a changed one. A directory that
/// arrived before the initial walk came to it makes all below it arrivals.
bool TreeWatches::isChange(Walk& walk, bool isNew, const struct statx& status) const {
    const auto since = firstStamp();
    const bool changed = isSince(status.stx_ctime, since);
    switch (walk) {
        case Walk::initial:
            if (changed && hasArrivedSince(status, since)) {
                walk = Walk::arrived;
            }
            return changed;
        case Walk::again:
            if (isNew && isFirstWalk_ && changed && hasArrivedSince(status, since)) {
                walk = Walk::moved;
            }
            return changed || (isNew && !isFirstWalk_);
        case Walk::arrived:
            return isNew;
        case Walk::moved:
            return true;
    }
    return false;
}

void TreeWatches::endWalk() {
    const bool sawAll = !retryAt_;
    const bool walkedAgain = std::exchange(walksAgain_, false);
    if (!sawAll) {
        return;
    }
    isFirstWalk_ = false;
    retryPause_ = shortestRetryPause;
    if (walkedAgain) {
        removeUnseen();
    }
}

void TreeWatches::dropStrays() {
    if (hasStrays_) {
        hasStrays_ = false;
        tree_.markReachable();
        removeUnseen();
    }
}

void TreeWatches::removeUnseen() {
    for (const auto watch : tree_.unseen()) {
        inotify_.remove(watch);
        tree_.remove(watch);
    }
}

std::vector<DirectoryEvent> TreeWatches::takeChanges() {
    waitingSince_.reset();
    if (walks_.empty()) {
        dropStrays();
    } else if (hasStrays_) {
        wait();  // the walk may yet find them
    }
    std::vector<DirectoryEvent> changes;
    if (std::exchange(lostEvents_, false)) {
        changes.push_back({tree_.folders().front(), mustScanSubDirs});
    }
    std::unordered_set<std::string> taken;
    for (const auto watch : std::exchange(pending_, {})) {
        if (!tree_.contains(watch) || !tree_.isPending(watch)) {
            continue;
        }
        tree_.setPending(watch, false);
        for (auto& path : tree_.paths(watch)) {
            if (taken.insert(path).second) {
                changes.push_back({std::move(path), 0});
            }
        }
    }
    return changes;
}

void TreeWatches::report(Watch watch) {
    if (!tree_.isPending(watch)) {
        tree_.setPending(watch, true);
        pending_.push_back(watch);
        wait();
    }
}

void TreeWatches::wait() {
    if (!waitingSince_) {
        waitingSince_ = Clock::now();
    }
}

TreeWatches::Watch TreeWatches::watchDirectory(const std::string& path, std::uint32_t extraFlags) {
    const int watch = inotify_.add(path, watchedEvents | extraFlags);
    if (watch >= 0) {
        return watch;
    }
    const int error = errno;
    if (error == ENOSPC) {
        noteLimit();
    }
    noteFailure(error);
    return WatchTree::noWatch;
}

void TreeWatches::noteLimit() {
    if (!std::exchange(notedLimit_, true)) {
        note_("Event stream: the system gives no more than " + std::to_string(watchCount()) +
              " watches (fs.inotify.max_user_watches); directories beyond them are not watched");
    }
}

void TreeWatches::countChangesSinceQuiet() {
    since_ = quietAt_;
    countsFrom_ = quietSince_;
}

/// The earliest time stamp of a change that counts. Where the clock was set back meanwhile, new
/// stamps may be earlier than old ones.
timespec TreeWatches::firstStamp() const {
    // In this order, and by the exact clock, a delay in between never looks like a clock set back.
    const auto passed = Clock::now() - countsFrom_;
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const auto setBack = sinceEpoch(since_) + passed - sinceEpoch(now);
    if (setBack <= coarseness) {
        return since_;
    }
    const auto first = sinceEpoch(since_) - setBack - coarseness;
    const auto seconds = std::chrono::floor<std::chrono::seconds>(first);
    return {.tv_sec = seconds.count(), .tv_nsec = (first - seconds).count()};
}

void TreeWatches::noteFailure(int error) {
    const bool isLasting =
        std::find(lastingErrors.begin(), lastingErrors.end(), error) != lastingErrors.end();
    if (isLasting || retryAt_) {
        return;
    }
    if (!isWalking()) {
        countChangesSinceQuiet();
    }
    retryAt_ = Clock::now() + retryPause_;
    retryPause_ = std::min(2 * retryPause_, longestRetryPause);
}

}  // namespace glintmark::platform
