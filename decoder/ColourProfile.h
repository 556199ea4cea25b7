#pragma once

#include <cstdint>
#include <span>

#include "decoder/PixelStore.h"

namespace glintmark::decoder {

/// Converts the colours of `canvas` from an embedded ICC profile to sRGB. Leaves them alone if the
/// profile is broken, is not one for RGB with three curves and a matrix, or is that of sRGB.
void convertFromProfile(std::span<const std::uint8_t> profile, const Canvas& canvas);

/// The primaries of ITU-T H.273, section 8.1, that are wider than those of sRGB.
enum class Primaries : std::uint8_t { displayP3, bt2020 };

/// Converts the colours of `canvas`, which have the curve of sRGB, to sRGB.
void convertFromPrimaries(Primaries primaries, const Canvas& canvas);

}  // namespace glintmark::decoder
