#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/graphics/Geometry.h"
#include "base/graphics/Image.h"
#include "platform/FileIdentity.h"

namespace glintmark {

namespace platform {
class PreparedIcon;
}  // namespace platform

/// Sets an image as the custom icon of a file. Keeps no state.
class IconApplier {
public:
    IconApplier() = delete;

    /// Stretches `image`, which must not be null, to 512 x 512 and lets the workspace prepare it.
    /// Null if `image` has no pixels or the workspace cannot prepare the icon. Any thread but the
    /// main one, since it takes some milliseconds.
    static std::shared_ptr<const platform::PreparedIcon> prepared(
        const std::shared_ptr<const Image>& image);

    /// Sets an icon from `prepared` on the file at `path`; if `read` is given, only while the path
    /// leads to the file that was read. Logs one line for success or failure; null is a failure.
    /// Main thread only.
    static void apply(std::shared_ptr<const platform::PreparedIcon> icon, const std::string& path,
                      const std::optional<platform::FileIdentity>& read = std::nullopt);

    /// Both steps in one call. Main thread only.
    static void apply(const std::shared_ptr<const Image>& image, const std::string& path);

private:
    /// `image` stretched to exactly `size` (points, whole numbers). A bitmap of zero size is drawn
    /// like any other, which leaves the result transparent. Absent if `image` cannot give a bitmap.
    static std::optional<Image> resizeImage(const Image& image, Size size);
};

}  // namespace glintmark
