#include "platform/image/DecoderProtocol.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using namespace platform::image;

/// What is let through fits the slot.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto answer = parseAnswer({data, size}, DecodeSlot::small);
    if (answer && answer->status == DecodeAnswer::Status::decoded) {
        fuzz::require(answer->pixelBytes() > 0 && answer->pixelBytes() <= smallSlotPixels);
    }
    return 0;
}
