#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <optional>
#include <set>
#include <string>

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

private:
    void keepRecordedIcons(std::set<std::string>& candidates) const;
    void keepIconsBelowHome(std::set<std::string>& candidates,
                            const std::atomic<bool>& stopping) const;

    IconStore& store_;
    AppliedIcons& applied_;
    std::string home_;
};

/// Sweeps ten minutes after the start and then once a day. Each sweep has its own thread of lowest
/// priority. Main thread only, default main context.
class IconSweeper {
public:
    explicit IconSweeper(IconSweep sweep);
    ~IconSweeper();  ///< Stops a running sweep and waits for it.
    IconSweeper(const IconSweeper&) = delete;
    IconSweeper& operator=(const IconSweeper&) = delete;

    void sweepNow();

private:
    void scheduleIn(std::chrono::seconds delay);
    void stop();

    IconSweep sweep_;
    std::atomic<bool> stopping_ = false;
    std::optional<Thread> thread_;
    GSourceId timer_;
};

}  // namespace glintmark::platform
