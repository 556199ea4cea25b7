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

/// Removes stored icons that no file has any more.
///
/// An icon goes when nothing has read or written it for thirty days, no file on record has it,
/// each of those files' folders is there to look into, and no link file below the home folder has
/// it (a file keeps its icon's name wherever it is moved). What cannot be read for another reason
/// than that the user may not read it may have any icon. Blocks for as long as it takes to look.
class IconSweep {
public:
    static constexpr std::chrono::hours unusedFor{24 * 30};

    IconSweep(IconStore& store, AppliedIcons& applied, std::string home)
        : store_(store), applied_(applied), home_(std::move(home)) {}

    /// `now` in seconds since 1970. Ends early, having removed nothing, when `stopping` becomes
    /// true.
    void run(std::time_t now, const std::atomic<bool>& stopping) const;

private:
    void keepThoseOnRecord(std::set<std::string>& candidates) const;
    void keepThoseBelowHome(std::set<std::string>& candidates,
                            const std::atomic<bool>& stopping) const;

    IconStore& store_;
    AppliedIcons& applied_;
    std::string home_;
};

/// Sweeps ten minutes after the start and then once a day, on a thread of lowest priority that is
/// there only meanwhile. Main thread only, default main context.
class IconSweeper {
public:
    explicit IconSweeper(IconSweep sweep);
    ~IconSweeper();  ///< Waits for a sweep under way, which ends at its next step.
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
