#pragma once

#include <cstddef>
#include <cstdint>

namespace glintmark::decoder {

// An image beyond these limits is not decoded.
inline constexpr int maximumEntries = 64;  ///< Images in one ICO, CUR or ICNS file.
inline constexpr int maximumSide = 65535;  ///< Width or height, in pixels.
inline constexpr std::int64_t maximumPixels = 50'000'000;

}  // namespace glintmark::decoder
