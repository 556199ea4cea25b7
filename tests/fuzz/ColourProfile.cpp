#include "decoder/ColourProfile.h"

#include <array>

#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

/// Rule: the conversion ends, and leaves transparency alone.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::array<std::uint8_t, 16> pixels{0, 64,  128, 1, 255, 0,   0,   2,
                                        9, 255, 77,  3, 255, 255, 255, 4};
    decoder::convertFromProfile({data, size}, decoder::Canvas(2, 2, pixels));
    for (std::size_t i = 0; i < 4; ++i) {
        fuzz::require(pixels[i * 4 + 3] == i + 1);
    }
    return 0;
}
