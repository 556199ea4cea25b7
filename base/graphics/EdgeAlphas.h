#pragma once

#include <array>
#include <cstdint>

#include "base/graphics/BitmapImageRep.h"

namespace glintmark {

/// The opacity, from 0 to 255, of twelve pixels at the edges of a bitmap: the four corners, the
/// middles of the four edges and the pixels one step inside the corners. In a small bitmap some of
/// them coincide. Those that lie outside the bitmap count as opaque.
using EdgeAlphas = std::array<std::uint8_t, 12>;

EdgeAlphas edgeAlphas(const BitmapImageRep& bitmap);

}  // namespace glintmark
