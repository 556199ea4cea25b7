#pragma once

#include <optional>
#include <utility>

#include "base/graphics/BitmapImageRep.h"
#include "base/graphics/EdgeAlphas.h"
#include "base/graphics/Geometry.h"

namespace glintmark {

/// A decoded image. Immutable; passed as `std::shared_ptr<const Image>`.
class Image {
public:
    /// The width and height of the picture that a large image keeps, in pixels.
    static constexpr int pictureEdge = 512;

    /// An image without pixels.
    explicit Image(Size size) : size_(size) {}

    /// An image of one bitmap; one pixel counts as one point.
    explicit Image(BitmapImageRep bitmap);

    /// A large image. `picture` is its bitmap scaled to `pictureEdge` in both directions; `edges`
    /// are those of the bitmap itself.
    Image(Size size, BitmapImageRep picture, const EdgeAlphas& edges)
        : size_(size), bitmap_(std::move(picture)), edges_(edges) {}

    /// The size of the best bitmap representation, in points.
    Size size() const { return size_; }

    /// The best representation: the largest area, then the deepest colours. For a large image, its
    /// scaled picture. Absent if the image has no pixels.
    const std::optional<BitmapImageRep>& bitmap() const { return bitmap_; }

    /// Those of the best representation, at its own size. Absent if the image has no pixels or no
    /// alpha channel.
    std::optional<EdgeAlphas> edgeAlphas() const;

private:
    Size size_;
    std::optional<BitmapImageRep> bitmap_;
    std::optional<EdgeAlphas> edges_;  // of a large image
};

}  // namespace glintmark
