#pragma once

#include <cstddef>
#include <cstdint>

namespace glintmark::decoder {

// Beyond these an image counts as one that does not decode.
inline constexpr int maximumEntries = 64;  ///< Images in one ICO, CUR or ICNS file.
inline constexpr int maximumSide = 16384;  ///< In pixels, either direction.
inline constexpr std::int64_t maximumPixels = 50'000'000;

}  // namespace glintmark::decoder
