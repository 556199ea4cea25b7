#include "decoder/WarmUp.h"

#include <algorithm>

#include "decoder/DecodeImage.h"
#include "decoder/HeapPixels.h"
#include "decoder/Samples.h"

namespace glintmark::decoder {

namespace {

std::span<const std::uint8_t> bytesOf(const Sample& sample) {
    return {reinterpret_cast<const std::uint8_t*>(sample.bytes.data()), sample.bytes.size()};
}

}  // namespace

bool decodes(const Sample& sample,
             std::optional<DecodedImage> (*decode)(std::span<const std::uint8_t>, PixelStore&)) {
    HeapPixels pixels;
    return decode(bytesOf(sample), pixels).has_value();
}

FormatDecoder* formatOf(const Sample& sample) { return formatOf(bytesOf(sample)); }

bool warmUp() {
    bool all = true;
    for (const Sample& sample : samples()) {
        all = decodes(sample, decodeImage) && all;
    }
    return all;
}

bool warmUpForPNG() {
    return std::ranges::any_of(samples(), [](const Sample& sample) {
        return sample.name.ends_with(".png") && decodes(sample, decodeImage);
    });
}

}  // namespace glintmark::decoder
