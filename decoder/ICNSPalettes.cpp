#include "decoder/ICNSPalettes.h"

#include <array>
#include <cstddef>

namespace glintmark::decoder {

namespace {

constexpr std::array<std::uint32_t, 16> colours = {
    0xFFFFFF, 0xFCF305, 0xFF6402, 0xDD0806, 0xF20884, 0x4600A5, 0x0000D4, 0x02ABEA,
    0x1FB714, 0x006411, 0x562C05, 0x90713A, 0xC0C0C0, 0x808080, 0x404040, 0x000000,
};

constexpr unsigned cubeSize = 215;  // 6 x 6 x 6 without black, which is the last of the 256
constexpr std::uint32_t cubeStep = 0x33;
constexpr unsigned rampLength = 10;
constexpr std::array<std::uint32_t, rampLength> ramp = {0xEE, 0xDD, 0xBB, 0xAA, 0x88,
                                                        0x77, 0x55, 0x44, 0x22, 0x11};

}  // namespace

std::uint32_t systemColourOf8Bits(unsigned index) {
    if (index < cubeSize) {
        const std::uint32_t red = 0xFF - index / 36 * cubeStep;
        const std::uint32_t green = 0xFF - index / 6 % 6 * cubeStep;
        const std::uint32_t blue = 0xFF - index % 6 * cubeStep;
        return red << 16U | green << 8U | blue;
    }
    // After the cube: ramps of red, green, blue and grey with the values that the cube lacks.
    const unsigned place = index - cubeSize;
    if (place >= 4 * rampLength) {
        return 0x000000;
    }
    const std::uint32_t value = ramp[place % rampLength];
    static constexpr std::array<std::uint32_t, 4> directions = {0x010000, 0x000100, 0x000001,
                                                                0x010101};
    return value * directions[place / rampLength];
}

std::uint32_t systemColourOf4Bits(unsigned index) { return colours[index]; }

}  // namespace glintmark::decoder
