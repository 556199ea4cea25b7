#include "decoder/DecoderProtocol.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using namespace decoder;

/// Rule: an answer that is accepted fits its slot.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span bytes(data, size);
    const auto small = parseAnswer(bytes, DecodeSlot::small);
    if (small && small->status == DecodeAnswer::Status::decoded) {
        fuzz::require(small->pixelBytes() > 0 && small->pixelBytes() <= smallSlotPixelBytes);
    }
    const auto large = parseAnswer(bytes, DecodeSlot::large);
    if (large && large->status == DecodeAnswer::Status::decoded) {
        constexpr auto most = std::size_t{maximumPixels} * BitmapImageRep::bytesPerPixel;
        fuzz::require(large->pixelBytes() > 0 && large->pixelBytes() <= most);
        fuzz::require(small.has_value() == (large->pixelBytes() <= smallSlotPixelBytes));
    }
    return 0;
}
