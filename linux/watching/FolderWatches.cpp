#include "linux/watching/FolderWatches.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "base/system/ReleaseWith.h"

namespace glintmark::platform {

namespace {

// Linux lets a poll(2) end late by a thousandth of its length, to wake a processor less often.
constexpr int shareSleptLater = 500;

/// A sleep that ends before `end` even if it ends late. The next one then is so short that it ends
/// in time.
timespec sleepBefore(FolderWatches::Clock::time_point end) {
    auto left = std::max(end - FolderWatches::Clock::now(), std::chrono::nanoseconds(0));
    left -= left / shareSleptLater;
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    return {.tv_sec = seconds.count(), .tv_nsec = (left - seconds).count()};
}

/// `path` without symbolic links; unchanged when nothing is there.
std::string realPath(const std::string& path) {
    const std::unique_ptr<char, ReleaseWith<std::free>> real(::realpath(path.c_str(), nullptr));
    return real != nullptr ? real.get() : path;
}

/// True if `path` is `directory` or is below it.
bool isWithin(std::string_view path, std::string_view directory) {
    return path.starts_with(directory) &&
           (directory.ends_with('/') || path.size() == directory.size() ||
            path[directory.size()] == '/');
}

}  // namespace

FolderWatches::FolderWatches(Inotify forTrees, Inotify forAncestors,
                             std::vector<std::string> folders, TreeWatches::DebugLogger logDebug)
    : folders_(std::move(folders)),
      ancestors_(std::move(forAncestors), folders_),
      trees_(std::move(forTrees), folders_, std::move(logDebug)) {}

void FolderWatches::begin() {
    for (std::size_t i = 0; i < folders_.size(); ++i) {
        ancestors_.arm(i);
    }
    trees_.watchFolders();
}

void FolderWatches::wait(int descriptor, std::optional<Clock::time_point> end) {
    trees_.retryIfDue();
    if (trees_.isWalking()) {
        trees_.continueWalk();
        end = Clock::time_point();  // do not sleep: there may be more to walk
    }
    if (const auto retryAt = trees_.retryAt()) {
        end = std::min(end.value_or(*retryAt), *retryAt);
    }
    if (gathers_) {
        const auto gathered = Clock::now() + gatheringTime;
        end = std::min(end.value_or(gathered), gathered);
    }
    std::array<pollfd, 4> sources = {{{mounts_.descriptor(), POLLPRI, 0},
                                      {gathers_ ? -1 : trees_.descriptor(), POLLIN, 0},
                                      {ancestors_.descriptor(), POLLIN, 0},
                                      {descriptor, POLLIN, 0}}};
    const auto left = sleepBefore(end.value_or(Clock::time_point()));
    ::ppoll(sources.data(), sources.size(), end ? &left : nullptr, nullptr);
    if (sources[0].revents != 0) {
        handleMounts();
    }
    handleAncestors();
    gathers_ = trees_.readEvents();
}

void FolderWatches::handleMounts() {
    if (isConcernedBy(mounts_.readChanged())) {
        rewatchAll();
    }
}

/// True if one of the mount points is a folder, or is below or above one.
bool FolderWatches::isConcernedBy(const std::vector<std::string>& mountPoints) const {
    return !mountPoints.empty() &&
           std::any_of(folders_.begin(), folders_.end(), [&](const std::string& folder) {
               const auto real = realPath(folder);
               return std::any_of(mountPoints.begin(), mountPoints.end(), [&](const auto& point) {
                   return isWithin(real, point) || isWithin(point, real);
               });
           });
}

void FolderWatches::handleAncestors() {
    const auto changed = ancestors_.readChanged();
    if (changed.lostEvents) {
        rewatchAll();
    }
    for (const auto folder : changed.paths) {
        ancestors_.arm(folder);
        trees_.rewatchFolder(folder);
    }
}

void FolderWatches::rewatchAll() {
    for (std::size_t i = 0; i < folders_.size(); ++i) {
        ancestors_.arm(i);
    }
    trees_.rewatchAll();
}

}  // namespace glintmark::platform
