#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "decoder/FormatDecoders.h"

namespace glintmark::decoder {

struct Sample;

/// True if `decode` decodes `sample`.
bool decodes(const Sample& sample,
             std::optional<DecodedImage> (*decode)(std::span<const std::uint8_t>, PixelStore&));

/// The format of `sample`.
FormatDecoder* formatOf(const Sample& sample);

/// Decodes every sample, so that the libraries have set up their tables and touched their pages
/// before a child is forked. False if a sample does not decode.
bool warmUp();

/// Decodes only the sample of the most common format. A child does this while it waits for its
/// image, so that its own copies of the pages exist when the image arrives.
bool warmUpForPNG();

}  // namespace glintmark::decoder
