#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "linux/watching/Inotify.h"

namespace glintmark::platform {

/// Notices when fixed paths may resolve to another directory: when the directory there, or anything
/// on the way to it, may have been made, removed or replaced. Watches each existing directory on
/// the way, through symbolic links as well.
class AncestorWatches {
public:
    /// The paths are absolute.
    AncestorWatches(Inotify inotify, std::vector<std::string> paths);

    int descriptor() const { return inotify_.descriptor(); }

    /// Watches the way to path number `index` as it is now. Changes from this call on are noticed.
    void arm(std::size_t index);

    struct Changed {
        /// The numbers of the paths that may resolve to another directory now. Each must be armed
        /// again.
        std::set<std::size_t> paths;
        bool lostEvents = false;  ///< The queue overflowed, so this may be true of any path.
    };

    Changed readChanged();

private:
    /// One directory on the way to a path.
    struct Step {
        int watch;
        std::size_t index;
        std::string directory;  ///< Without symbolic links; empty for the root.
        std::string next;       ///< The next name on the way; empty in the last directory.
        std::uint32_t events;   ///< That this path needs from the directory.
    };

    void follow(std::size_t index);
    bool watchStep(const std::string& directory, std::size_t index, std::string_view next);
    void addPermissionChanges(const std::string& directory, std::size_t index);
    void dropUnusedEvents();
    void noteChanged(const InotifyEvent& event, Changed& changed);

    Inotify inotify_;
    std::vector<std::string> paths_;
    std::vector<Step> steps_;
    std::map<int, std::uint32_t> watches_;  // with the events asked for
};

}  // namespace glintmark::platform
