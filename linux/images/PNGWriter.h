#pragma once

#include <span>
#include <string>
#include <string_view>

#include "base/graphics/BitmapImageRep.h"

namespace glintmark::platform {

struct PNGText {
    std::string_view key;  ///< 1 to 79 bytes of Latin-1.
    std::string value;     ///< Without NUL bytes.
};

/// `bitmap` as a PNG file, compressed for speed rather than size. Any thread.
std::string encodedPNG(const BitmapImageRep& bitmap);

/// `png`, a file from `encodedPNG`, with one tEXt chunk per text inserted before the pixels (PNG,
/// third edition, 11.3.3.2). The pixels are not compressed again.
std::string withTexts(std::string_view png, std::span<const PNGText> texts);

}  // namespace glintmark::platform
