#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "linux/watching/AncestorWatches.h"
#include "linux/watching/MountTable.h"
#include "linux/watching/TreeWatches.h"

namespace glintmark::platform {

/// All watches for a list of folders: on the trees below them, on the directories on the way to
/// them, and on the table of mounts, because a mount has no inotify event. One thread.
class FolderWatches {
public:
    using Clock = TreeWatches::Clock;

    /// Short enough that not even a program that does nothing but rename files fills the kernel's
    /// queue meanwhile: 16,384 events (fs.inotify.max_queued_events), each takes over 1 µs to make.
    static constexpr std::chrono::milliseconds gatheringTime{10};

    /// Only changes after this call count. `folders` are absolute paths.
    FolderWatches(Inotify forTrees, Inotify forAncestors, std::vector<std::string> folders,
                  TreeWatches::DebugLogger logDebug);

    /// Watches the folders. `wait()` walks their trees.
    void begin();

    /// Sleeps until an event arrives, `descriptor` becomes readable or `end` is near; then handles
    /// the events. Without `end` there is no timeout. While there are directories to walk,
    /// walks some of them instead of sleeping. After events in the trees it lets the next ones
    /// gather, so that a busy folder wakes the thread only `1 s / gatheringTime` times a second.
    void wait(int descriptor, std::optional<Clock::time_point> end);

    std::optional<Clock::time_point> pendingSince() const { return trees_.pendingSince(); }
    std::vector<DirectoryEvent> takeChanges() { return trees_.takeChanges(); }

private:
    bool isConcernedBy(const std::vector<std::string>& mountPoints) const;
    void handleMounts();
    void handleAncestors();
    void rewatchAll();

    const std::vector<std::string> folders_;
    MountTable mounts_;
    AncestorWatches ancestors_;
    TreeWatches trees_;
    bool gathers_ = false;  // events have just been read, and more will follow
};

}  // namespace glintmark::platform
