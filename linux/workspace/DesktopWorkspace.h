#pragma once

#include <sys/stat.h>

#include <memory>
#include <optional>
#include <string>

#include "linux/bus/SessionBus.h"
#include "linux/workspace/AppliedIcons.h"
#include "linux/workspace/IconMetadata.h"
#include "linux/workspace/IconStore.h"
#include "linux/workspace/IconSweep.h"
#include "linux/workspace/ThumbnailCache.h"
#include "linux/workspace/WindowRefresh.h"
#include "platform/Workspace.h"

namespace glintmark {
class DispatchQueue;
}  // namespace glintmark

namespace glintmark::platform {

/// The folders in which the workspace stores icons; absolute, without a trailing slash.
struct WorkspaceFolders {
    std::string home;
    std::string dataHome;   ///< $XDG_DATA_HOME
    std::string cacheHome;  ///< $XDG_CACHE_HOME

    static WorkspaceFolders ofUser();
};

/// The workspace for freedesktop.org desktops.
///
/// No single way to set an icon works in every file manager. So a file gets thumbnails in the
/// cache that all programs share, an attribute that GLib programs read, and the name of its stored
/// icon for the thumbnailer that is installed with the program.
class DesktopWorkspace : public Workspace {
public:
    /// `helpers`, a queue with several threads, does a part of `prepareIcon`. It must outlive the
    /// workspace.
    DesktopWorkspace(SessionBus& bus, DispatchQueue& helpers,
                     const WorkspaceFolders& folders = WorkspaceFolders::ofUser());
    DesktopWorkspace(SessionBus& bus, DispatchQueue& helpers, const WorkspaceFolders& folders,
                     IconMetadata::Writer metadataWriter);

    std::shared_ptr<const PreparedIcon> prepareIcon(const Image& image) override;
    bool setIcon(std::shared_ptr<const PreparedIcon> icon, const std::string& path,
                 const std::optional<FileIdentity>& read) override;
    bool openFileViewer(const std::string& folder) override;
    bool open(const URL& url) override;

    /// The file that holds the picture of `icon`, which this workspace prepared. Absent if the
    /// picture could not be stored.
    std::optional<std::string> storedPicture(const PreparedIcon& icon) const;

    /// True if nothing is left to do for the icons that were set: the metadata daemon has answered,
    /// and open windows have been told. A short-lived program waits for this.
    bool isIdle() const { return metadata_.isIdle() && windows_.isIdle(); }

private:
    struct EncodedIcon;
    struct Target;

    bool writeThumbnails(const Target& target, const std::string& modificationTime) const;
    void finish(const Target& target);

    SessionBus& bus_;
    DispatchQueue& helpers_;
    IconStore store_;
    AppliedIcons applied_;
    ThumbnailCache thumbnails_;
    WindowRefresh windows_;
    IconMetadata metadata_;
    IconSweeper sweeper_;
};

}  // namespace glintmark::platform
