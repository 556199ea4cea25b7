#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>

#include "linux/bus/SessionBus.h"
#include "linux/workspace/AppliedIcons.h"
#include "linux/workspace/IconMetadata.h"
#include "linux/workspace/IconStore.h"
#include "linux/workspace/IconSweep.h"
#include "linux/workspace/ThumbnailCache.h"
#include "linux/workspace/WindowRefresh.h"
#include "platform/Workspace.h"

namespace glintmark::platform {

/// Where the workspace keeps things; absolute, without a trailing slash.
struct WorkspaceFolders {
    std::string home;
    std::string dataHome;   ///< $XDG_DATA_HOME
    std::string cacheHome;  ///< $XDG_CACHE_HOME

    static WorkspaceFolders ofUser();
};

/// The workspace by the freedesktop.org conventions and those of the single file managers.
///
/// No one way of giving a file an icon reaches every file manager, so a file gets a thumbnail in
/// the cache that all share, an attribute that GLib programs read, and its icon's name for the
/// thumbnailer that the program installs.
class DesktopWorkspace : public Workspace {
public:
    explicit DesktopWorkspace(SessionBus& bus,
                              const WorkspaceFolders& folders = WorkspaceFolders::ofUser());
    DesktopWorkspace(SessionBus& bus, const WorkspaceFolders& folders,
                     IconMetadata::Writer metadataWriter);

    std::shared_ptr<const PreparedIcon> prepareIcon(const Image& image) override;
    bool setIcon(std::shared_ptr<const PreparedIcon> icon, const std::string& path) override;
    bool openFileViewer(const std::string& folder) override;
    bool open(const URL& url) override;

private:
    struct EncodedIcon;
    struct Target;

    bool writeThumbnails(const Target& target, const std::string& modificationTime) const;
    void finish(const Target& target);

    SessionBus& bus_;
    IconStore store_;
    AppliedIcons applied_;
    ThumbnailCache thumbnails_;
    WindowRefresh windows_;
    IconMetadata metadata_;
    IconSweeper sweeper_;
};

}  // namespace glintmark::platform
