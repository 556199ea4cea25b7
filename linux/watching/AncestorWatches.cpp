#include "linux/watching/AncestorWatches.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <deque>
#include <utility>

namespace glintmark::platform {

namespace {

// A directory on the way to a path needs events when the next name appears in it or is replaced,
// and when the directory is moved. The kernel always reports the removal of the directory
// (IN_IGNORED). The removal of the next name needs no event: there is nothing to do until something
// replaces it.
constexpr std::uint32_t stepEvents =
    IN_CREATE | IN_MOVED_TO | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;
constexpr std::uint32_t lastStepEvents = IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;
constexpr std::uint32_t selfEvents = IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;

constexpr int maximumLinks = 40;  // path_resolution(7)

/// `directory` is empty for the root.
std::string pathOf(const std::string& directory) { return directory.empty() ? "/" : directory; }

void prependNames(std::deque<std::string>& names, std::string_view path) {
    std::vector<std::string> split;
    while (!path.empty()) {
        const auto name = path.substr(0, path.find('/'));
        split.emplace_back(name);
        path.remove_prefix(std::min(path.size(), name.size() + 1));
    }
    names.insert(names.begin(), split.begin(), split.end());
}

/// The text of the symbolic link; "" when it cannot be read.
std::string targetOf(const std::string& link) {
    std::array<char, PATH_MAX> target{};
    const auto length = ::readlink(link.c_str(), target.data(), target.size());
    return {target.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

}  // namespace

AncestorWatches::AncestorWatches(Inotify inotify, std::vector<std::string> paths)
    : inotify_(std::move(inotify)), paths_(std::move(paths)) {}

void AncestorWatches::arm(std::size_t index) {
    std::erase_if(steps_, [&](const Step& step) { return step.index == index; });
    follow(index);
    dropUnusedEvents();
}

/// Resolves the path as path_resolution(7) says. Watches each directory before it looks into it, so
/// that nothing happens unnoticed in between.
void AncestorWatches::follow(std::size_t index) {
    std::string directory;  // no symbolic links in it; empty for the root
    std::deque<std::string> names;
    prependNames(names, paths_[index]);
    int links = 0;
    while (!names.empty()) {
        const auto name = std::move(names.front());
        names.pop_front();
        if (name.empty() || name == ".") {
            continue;
        }
        if (name == "..") {
            directory.erase(std::min(directory.rfind('/'), directory.size()));
            continue;
        }
        watchStep(directory, index, name);
        const auto path = std::string(directory).append("/").append(name);
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0) {
            if (errno == EACCES) {
                addPermissionChanges(directory, index);
            }
            return;
        }
        if (S_ISLNK(status.st_mode)) {
            const auto target = targetOf(path);
            if (++links > maximumLinks || target.empty()) {
                return;
            }
            directory = target.starts_with('/') ? "" : directory;
            prependNames(names, target);
        } else if (S_ISDIR(status.st_mode)) {
            directory = path;
        } else {
            return;
        }
    }
    if (!watchStep(directory, index, "") && errno == EACCES) {
        addPermissionChanges(directory, index);
    }
}

bool AncestorWatches::watchStep(const std::string& directory, std::size_t index,
                                std::string_view next) {
    // The ways to different paths share directories, so events are only added: the last directory
    // of one way may be in the middle of another.
    const auto events = next.empty() ? lastStepEvents : stepEvents;
    const int watch = inotify_.add(pathOf(directory), events | IN_MASK_ADD);
    if (watch < 0) {
        return false;
    }
    watches_[watch] |= events;
    steps_.push_back({watch, index, directory, std::string(next), events});
    return true;
}

/// Also watches for changed permissions: a directory that the user may not search now may become
/// searchable. A directory that the user may not read cannot be watched, but the watch of its
/// parent reports the change.
void AncestorWatches::addPermissionChanges(const std::string& directory, std::size_t index) {
    const auto parent = directory.substr(0, directory.rfind('/'));
    for (auto& step : steps_) {
        if (step.index == index && (step.directory == directory || step.directory == parent)) {
            step.events |= IN_ATTRIB;
            inotify_.add(pathOf(step.directory), step.events | IN_MASK_ADD);
            watches_[step.watch] |= step.events;
        }
    }
}

/// Drops the watches, and the events of the others, that no path needs any more.
void AncestorWatches::dropUnusedEvents() {
    std::map<int, std::uint32_t> used;
    for (const auto& step : steps_) {
        used[step.watch] |= step.events;
    }
    for (const auto& [watch, events] : watches_) {
        if (!used.contains(watch)) {
            inotify_.remove(watch);
        }
    }
    for (const auto& step : steps_) {
        const auto needed = used[step.watch];
        if (watches_[step.watch] == needed) {
            continue;
        }
        const int watch = inotify_.add(pathOf(step.directory), needed);
        if (watch >= 0 && !used.contains(watch)) {
            inotify_.remove(watch);  // another directory is there now, which an event reports
        }
        watches_[step.watch] = needed;
    }
    watches_ = std::move(used);
}

AncestorWatches::Changed AncestorWatches::readChanged() {
    Changed changed;
    inotify_.read([&](const InotifyEvent& event) { noteChanged(event, changed); });
    return changed;
}

void AncestorWatches::noteChanged(const InotifyEvent& event, Changed& changed) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        changed.lostEvents = true;
    }
    const bool isSelf = (event.mask & selfEvents) != 0 || event.name.empty();
    for (const auto& step : steps_) {
        if (step.watch == event.watch && (isSelf || step.next == event.name)) {
            changed.paths.insert(step.index);
        }
    }
    if ((event.mask & IN_IGNORED) != 0) {
        watches_.erase(event.watch);
    }
}

}  // namespace glintmark::platform
