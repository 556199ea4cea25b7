#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace glintmark {

/// A bitmap of straight (not premultiplied) RGBA, 8 bits a channel, rows from the top without
/// padding. Immutable; copies share the pixels; any thread.
class BitmapImageRep {
public:
    static constexpr std::size_t bytesPerPixel = 4;

    /// `pixels` must hold width * height * 4 bytes; anything else is a programming error.
    BitmapImageRep(int width, int height, bool hasAlpha, std::vector<std::uint8_t> pixels);

    /// The same without copying the pixels, which must live as long as `owner` does.
    BitmapImageRep(int width, int height, bool hasAlpha, std::shared_ptr<const void> owner,
                   std::span<const std::uint8_t> pixels);

    int pixelsWide() const { return width_; }
    int pixelsHigh() const { return height_; }
    bool hasAlpha() const { return hasAlpha_; }  ///< True even if all pixels are opaque.
    std::span<const std::uint8_t> pixels() const { return pixels_; }

    /// Opacity from 0.0 to 1.0 of the pixel in column `x` and row `y`, rows counted from the top.
    /// Absent outside the bitmap.
    std::optional<double> alphaAt(int x, int y) const;

private:
    void requirePixelsToFillTheSize() const;

    int width_;
    int height_;
    bool hasAlpha_;
    std::shared_ptr<const void> owner_;
    std::span<const std::uint8_t> pixels_;
};

}  // namespace glintmark
