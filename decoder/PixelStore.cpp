#include "decoder/PixelStore.h"

#include "base/graphics/BitmapImageRep.h"
#include "decoder/ImageLimits.h"

namespace glintmark::decoder {

std::size_t Canvas::bytesPerRow() const {
    return static_cast<std::size_t>(width_) * BitmapImageRep::bytesPerPixel;
}

std::optional<Canvas> PixelStore::allocate(std::int64_t width, std::int64_t height) {
    if (width < 1 || height < 1 || width > maximumSide || height > maximumSide) {
        return std::nullopt;
    }
    if (width * height > maximumPixels) {
        return std::nullopt;
    }
    const std::size_t size =
        static_cast<std::size_t>(width * height) * BitmapImageRep::bytesPerPixel;
    const std::span<std::uint8_t> pixels = provide(size);
    if (pixels.size() != size) {
        return std::nullopt;
    }
    return Canvas(static_cast<int>(width), static_cast<int>(height), pixels);
}

}  // namespace glintmark::decoder
