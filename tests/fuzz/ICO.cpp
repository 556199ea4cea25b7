#include "decoder/FormatDecoders.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/SmallPixels.h"

using namespace glintmark;

/// The pixels fill the size.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::SmallPixels pixels;
    const auto image = decoder::decodeICO({data, size}, pixels);
    fuzz::require(!image || pixels.fill(image->width, image->height));
    return 0;
}
