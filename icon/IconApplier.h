#pragma once

#include <memory>
#include <string>

#include "base/graphics/Geometry.h"
#include "base/graphics/Image.h"

namespace glintmark {

/// Makes an image the custom icon of a file. Keeps no state.
class IconApplier {
public:
    IconApplier() = delete;

    /// `image`, which must not be null, stretched and encoded, so that `apply`, which is to follow
    /// once, has only to store it. Any thread but the main one: a large image is decoded here,
    /// which may take seconds.
    static std::shared_ptr<const Image> prepared(const std::shared_ptr<const Image>& image);

    /// Sets `image`, which must not be null, on the file at `path`, stretched to 512 x 512. Success
    /// and failure are one line in the log. Main thread only.
    static void apply(const std::shared_ptr<const Image>& image, const std::string& path);

private:
    /// A new image of exactly `size` (points, whole numbers) into which all of `image` is
    /// stretched. Transparent all over when `image` has no pixels.
    static Image resizeImage(const Image& image, Size size);
};

}  // namespace glintmark
