#include "base/graphics/Image.h"

namespace glintmark {

Image::Image(BitmapImageRep bitmap)
    : size_{static_cast<double>(bitmap.pixelsWide()), static_cast<double>(bitmap.pixelsHigh())},
      bitmap_(std::move(bitmap)) {}

std::optional<BitmapImageRep> Image::bitmap() const {
    if (bitmap_ || !source_) {
        return bitmap_;
    }
    return source_();
}

}  // namespace glintmark
