#pragma once

#include <string>

#include "base/graphics/Image.h"
#include "base/url/URL.h"

namespace glintmark::platform {

/// The desktop around the program: file icons, the file browser, the web browser. Main thread only,
/// but for `prepareIcon`.
class Workspace {
public:
    virtual ~Workspace() = default;

    /// Does ahead what takes long in the one call of `setIcon` that is to follow for these very
    /// pixels. Any thread.
    virtual void prepareIcon(const Image& image) = 0;

    /// Makes `image` the custom icon of the file at `path`, in windows that are open as well.
    /// False when the file does not exist or nothing could be written for it.
    virtual bool setIcon(const Image& image, const std::string& path) = 0;

    /// Opens a file-browser window at `folder` with nothing selected. False when the request
    /// could not be made; returns before the window is there.
    virtual bool openFileViewer(const std::string& folder) = 0;

    /// Opens `url` with the user's program for it. False when the request could not be made.
    virtual bool open(const URL& url) = 0;
};

}  // namespace glintmark::platform
