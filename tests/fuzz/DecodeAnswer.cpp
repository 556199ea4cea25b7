#include "decoder/DecoderProtocol.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using namespace decoder;

/// Rule: the pixels of an accepted answer are within the limits, and those that the program reads
/// fit the exchange file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto answer = parseAnswer({data, size});
    if (answer && answer->status == DecodeAnswer::Status::decoded) {
        constexpr auto most = std::size_t{maximumPixels} * BitmapImageRep::bytesPerPixel;
        fuzz::require(answer->bitmapBytes() > 0 && answer->bitmapBytes() <= most);
        fuzz::require(answer->isScaled() || answer->bitmapBytes() <= maximumAnswerBytes);
        fuzz::require(answer->hasAlpha <= 1);
    }
    return 0;
}
