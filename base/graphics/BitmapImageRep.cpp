#include "base/graphics/BitmapImageRep.h"

#include <utility>

#include "base/system/FatalError.h"

namespace glintmark {

namespace {

constexpr double opaque = 255.0;

}  // namespace

BitmapImageRep::BitmapImageRep(int width, int height, bool hasAlpha,
                               std::vector<std::uint8_t> pixels)
    : width_(width), height_(height), hasAlpha_(hasAlpha) {
    auto owner = std::make_shared<const std::vector<std::uint8_t>>(std::move(pixels));
    pixels_ = *owner;
    owner_ = std::move(owner);
    requirePixelsToFillTheSize();
}

BitmapImageRep::BitmapImageRep(int width, int height, bool hasAlpha,
                               std::shared_ptr<const void> owner,
                               std::span<const std::uint8_t> pixels)
    : width_(width),
      height_(height),
      hasAlpha_(hasAlpha),
      owner_(std::move(owner)),
      pixels_(pixels) {
    requirePixelsToFillTheSize();
}

void BitmapImageRep::requirePixelsToFillTheSize() const {
    if (width_ < 0 || height_ < 0) {
        fatalError("Bitmap with a negative size");
    }
    const auto expected =
        static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * bytesPerPixel;
    if (pixels_.size() != expected) {
        fatalError("Bitmap whose pixels do not fill its size");
    }
}

std::optional<double> BitmapImageRep::alphaAt(int x, int y) const {
    if (x < 0 || y < 0 || x >= width_ || y >= height_) {
        return std::nullopt;
    }
    const auto pixel = static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                       static_cast<std::size_t>(x);
    return pixels_[pixel * bytesPerPixel + 3] / opaque;
}

}  // namespace glintmark
