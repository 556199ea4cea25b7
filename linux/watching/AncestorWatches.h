#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "linux/watching/Inotify.h"

namespace glintmark::platform {

/// Notices when what lies at a fixed path may have come, gone or been replaced, wherever on its way
/// that happens: each existing directory on the way is watched, through symbolic links as well.
class AncestorWatches {
public:
    /// The paths are absolute.
    AncestorWatches(Inotify inotify, std::vector<std::string> paths);

    int descriptor() const { return inotify_.descriptor(); }

    /// Watches the way to path number `index` as it is now. What changes from here on is noticed.
    void arm(std::size_t index);

    /// Which paths may lead elsewhere now. Their ways must be armed again.
    std::set<std::size_t> readChanged();

private:
    /// One directory on the way to a path.
    struct Step {
        int watch;
        std::size_t index;
        std::string next;  ///< The name on the way that lies in it; empty in the last directory.
    };

    void follow(std::size_t index);
    int watchStep(const std::string& directory, std::size_t index, std::string_view next);
    void addPermissionChanges(const std::string& directory);
    void dropUnusedWatches();
    void noteChanged(const InotifyEvent& event, std::set<std::size_t>& changed);

    Inotify inotify_;
    std::vector<std::string> paths_;
    std::vector<Step> steps_;
    std::set<int> watches_;
};

}  // namespace glintmark::platform
