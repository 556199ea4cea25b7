#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "decoder/FormatDecoders.h"
#include "decoder/PixelStore.h"

namespace glintmark::decoder {

/// Decodes a file of any of the known formats, which its first bytes tell apart. Absent when it is
/// none of them, is broken, or goes beyond the limits. Of several images in a file it yields the
/// best that decodes: largest area first, then deepest.
std::optional<DecodedImage> decodeImage(std::span<const std::uint8_t> file, PixelStore& pixels);

}  // namespace glintmark::decoder
