#include "decoder/WarmUp.h"

#include <algorithm>
#include <cstdint>
#include <span>

#include "decoder/DecodeImage.h"
#include "decoder/HeapPixels.h"
#include "decoder/Samples.h"

namespace glintmark::decoder {

namespace {

bool decodes(const Sample& sample) {
    HeapPixels pixels;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(sample.bytes.data());
    return decodeImage({bytes, sample.bytes.size()}, pixels).has_value();
}

}  // namespace

bool warmUp() {
    bool all = true;
    for (const Sample& sample : samples()) {
        all = decodes(sample) && all;
    }
    return all;
}

bool warmUpForPNG() {
    return std::ranges::any_of(samples(), [](const Sample& sample) {
        return sample.name.ends_with(".png") && decodes(sample);
    });
}

}  // namespace glintmark::decoder
