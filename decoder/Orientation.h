#pragma once

#include <cstdint>
#include <span>

#include "decoder/FormatDecoders.h"
#include "decoder/PixelStore.h"

namespace glintmark::decoder {

/// What to do, in this order, to the stored picture so that it stands upright.
struct Orientation {
    bool transpose = false;  ///< Exchange rows and columns.
    bool mirror = false;     ///< Exchange left and right.
    bool flip = false;       ///< Exchange top and bottom.
};

/// The orientation with the number 1 to 8 of TIFF 6.0, tag 274. Any other number is upright.
Orientation orientationOf(unsigned number);

/// The orientation in Exif data (Exif 2.32, section 4.6.4), with or without the identifier of a
/// JPEG marker before it. Upright if it is missing or broken.
Orientation orientationIn(std::span<const std::uint8_t> exif);

/// Turns the pixels of `canvas` upright and exchanges the sizes where rows became columns. Throws
/// `std::bad_alloc` if there is no memory for that.
DecodedImage upright(const Canvas& canvas, Orientation orientation, bool hasAlpha);

}  // namespace glintmark::decoder
