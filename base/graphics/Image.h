#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "base/graphics/BitmapImageRep.h"
#include "base/graphics/Geometry.h"

namespace glintmark {

/// A decoded image. Never modified after it was made; passed as `std::shared_ptr<const Image>`.
class Image {
public:
    using BitmapSource = std::function<std::optional<BitmapImageRep>()>;

    /// An image without any bitmap.
    explicit Image(Size size) : size_(size) {}

    /// An image of one bitmap; one pixel counts as one point.
    explicit Image(BitmapImageRep bitmap);

    /// A large image whose pixels `source` produces again each time they are asked for.
    Image(Size size, BitmapSource source) : size_(size), source_(std::move(source)) {}

    /// In points, of the best bitmap representation.
    Size size() const { return size_; }

    /// The best representation (largest area, then deepest). Absent when there is none or its
    /// pixels cannot be had any more. May take as long as decoding does.
    std::optional<BitmapImageRep> bitmap() const;

private:
    Size size_;
    std::optional<BitmapImageRep> bitmap_;
    BitmapSource source_;
};

}  // namespace glintmark
