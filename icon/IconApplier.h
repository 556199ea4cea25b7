#pragma once

#include <memory>
#include <string>

#include "base/graphics/Geometry.h"
#include "base/graphics/Image.h"

namespace glintmark {

namespace platform {
class PreparedIcon;
}  // namespace platform

/// Sets an image as the custom icon of a file. Keeps no state.
class IconApplier {
public:
    IconApplier() = delete;

    /// Stretches `image`, which must not be null, to 512 x 512 and lets the workspace prepare it.
    /// Null if the workspace cannot prepare it. Any thread but the main one: a large image is
    /// decoded here, which may take seconds.
    static std::shared_ptr<const platform::PreparedIcon> prepared(
        const std::shared_ptr<const Image>& image);

    /// Sets an icon from `prepared` on the file at `path`. Logs one line for success or failure.
    /// Main thread only.
    static void apply(std::shared_ptr<const platform::PreparedIcon> icon, const std::string& path);

    /// Both steps in one call. Main thread only.
    static void apply(const std::shared_ptr<const Image>& image, const std::string& path);

private:
    /// `image` stretched to exactly `size` (points, whole numbers). Fully transparent when `image`
    /// has no pixels.
    static Image resizeImage(const Image& image, Size size);
};

}  // namespace glintmark
