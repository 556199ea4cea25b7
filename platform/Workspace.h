#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/graphics/Image.h"
#include "base/url/URL.h"
#include "platform/FileIdentity.h"

namespace glintmark::platform {

/// An icon that is ready to be set on any number of files. Only the workspace that made it can read
/// it.
class PreparedIcon {
public:
    virtual ~PreparedIcon() = default;
};

/// The desktop around the program: file icons, the file browser, the web browser. Main thread only,
/// except `prepareIcon`.
class Workspace {
public:
    virtual ~Workspace() = default;

    /// Does the slow part of setting `image` as an icon: everything that needs no file. Null when
    /// the image has no pixels. Any thread.
    virtual std::shared_ptr<const PreparedIcon> prepareIcon(const Image& image) = 0;

    /// Makes `icon`, which this workspace prepared, the custom icon of the file at `path`. Open
    /// windows show the icon, too. `read` tells which file the icon was made for; if it is absent,
    /// any file at `path` gets the icon. False when `icon` is null, the file does not exist, `path`
    /// leads to a file that is neither the one that was read nor its replacement in the same place,
    /// or nothing could be written for it.
    virtual bool setIcon(std::shared_ptr<const PreparedIcon> icon, const std::string& path,
                         const std::optional<FileIdentity>& read) = 0;

    /// Opens a file-browser window at `folder` with nothing selected, and returns before it is
    /// shown. False when no request could be made.
    virtual bool openFileViewer(const std::string& folder) = 0;

    /// Opens `url` with the user's program for it. False when no request could be made.
    virtual bool open(const URL& url) = 0;
};

}  // namespace glintmark::platform
