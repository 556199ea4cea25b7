#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "decoder/FormatDecoders.h"
#include "decoder/PixelStore.h"

namespace glintmark::decoder {

/// The decoder of the file's format, which the first bytes tell. Null if it is unknown.
FormatDecoder* formatOf(std::span<const std::uint8_t> file);

/// Decodes a file of any known format. Absent if the format is unknown, the file is broken, or the
/// image exceeds the limits. From a file of several images it decodes the best one that it can: the
/// largest area first, then the most bits per pixel.
std::optional<DecodedImage> decodeImage(std::span<const std::uint8_t> file, PixelStore& pixels);

}  // namespace glintmark::decoder
