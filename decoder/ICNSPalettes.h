#pragma once

#include <cstdint>

namespace glintmark::decoder {

/// Colours 0xRRGGBB of the two palettes of classic Macintosh icons (Apple, "Inside Macintosh:
/// Imaging With QuickDraw", chapter 4).
std::uint32_t systemColourOf8Bits(unsigned index);  ///< `index` below 256.
std::uint32_t systemColourOf4Bits(unsigned index);  ///< `index` below 16.

}  // namespace glintmark::decoder
