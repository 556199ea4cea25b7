#include "base/graphics/Image.h"

namespace glintmark {

Image::Image(BitmapImageRep bitmap)
    : size_{static_cast<double>(bitmap.pixelsWide()), static_cast<double>(bitmap.pixelsHigh())},
      bitmap_(std::move(bitmap)) {}

std::optional<EdgeAlphas> Image::edgeAlphas() const {
    if (!bitmap_ || !bitmap_->hasAlpha() || bitmap_->pixels().empty()) {
        return std::nullopt;
    }
    return edges_ ? edges_ : glintmark::edgeAlphas(*bitmap_);
}

}  // namespace glintmark
