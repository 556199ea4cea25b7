#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tests/decoder/ImageFiles.h"

namespace glintmark::decoder {
namespace {

/// A good file and what is done to it.
struct Damage {
    const char* name;
    const char* file;
    std::function<void(Bytes&)> apply;
};

std::string nameOf(const testing::TestParamInfo<Damage>& info) { return info.param.name; }

std::function<void(Bytes&)> setLittle(std::size_t at, std::size_t count, std::uint32_t value) {
    return [=](Bytes& file) {
        for (std::size_t i = 0; i < count; ++i) {
            file.at(at + i) = static_cast<std::uint8_t>(value >> (8 * i));
        }
    };
}

Bytes damaged(const Damage& damage) {
    Bytes file = imageFile(damage.file);
    EXPECT_TRUE(decoded(file)) << "the file is not good before the damage";
    damage.apply(file);
    return file;
}

class DamagedFileTest : public testing::TestWithParam<Damage> {};
class HarmlessDamageTest : public testing::TestWithParam<Damage> {};

TEST_P(DamagedFileTest, DoesNotDecode) { EXPECT_FALSE(decoded(damaged(GetParam()))); }

TEST_P(HarmlessDamageTest, ShowsTheSamePicture) {
    const auto picture = decoded(damaged(GetParam()));
    const auto undamaged = decoded(GetParam().file);
    ASSERT_TRUE(picture);
    EXPECT_TRUE(std::ranges::equal(picture->pixels(), undamaged->pixels()));
}

// ---- BMP (fields of BITMAPFILEHEADER and BITMAPINFOHEADER)

constexpr std::size_t fileSizeField = 2;
constexpr std::size_t pixelOffsetField = 10;
constexpr std::size_t headerSizeField = 14;
constexpr std::size_t widthField = 18;
constexpr std::size_t heightField = 22;
constexpr std::size_t planesField = 26;
constexpr std::size_t depthField = 28;
constexpr std::size_t compressionField = 30;
constexpr std::size_t pictureSizeField = 34;
constexpr std::size_t densityField = 38;
constexpr std::size_t coloursField = 46;
constexpr std::size_t os2PlanesField = 22;

INSTANTIATE_TEST_SUITE_P(
    BMP, DamagedFileTest,
    testing::Values(
        Damage{"BitsPerPixel", "bmp8.bmp", setLittle(depthField, 2, 0x0800)},
        Damage{"NoBitsPerPixel", "bmp8.bmp", setLittle(depthField, 2, 0)},
        Damage{"HeaderSize", "bmp24.bmp", setLittle(headerSizeField, 4, 66)},
        Damage{"HugeHeader", "bmp24.bmp", setLittle(headerSizeField, 4, 0xFFFFFFFF)},
        Damage{"Planes", "bmp8.bmp", setLittle(planesField, 2, 7)},
        Damage{"NoPlanes", "bmp24.bmp", setLittle(planesField, 2, 0)},
        Damage{"PlanesOfOS2", "bmp8-os2.bmp", setLittle(os2PlanesField, 2, 2)},
        Damage{"NegativeWidth", "bmp8.bmp", setLittle(widthField, 4, 0x80000008)},
        Damage{"NoWidth", "bmp8.bmp", setLittle(widthField, 4, 0)},
        Damage{"NoHeight", "bmp8.bmp", setLittle(heightField, 4, 0)},
        Damage{"HugeSize", "bmp24.bmp", setLittle(widthField, 4, 3'000'000)},
        Damage{"PaletteBeyondTheFile", "bmp8.bmp", setLittle(coloursField, 4, 0x12341000)},
        Damage{"UnknownCompression", "bmp8.bmp", setLittle(compressionField, 4, 77)},
        Damage{"RunsOfAnotherDepth", "bmp8.bmp", setLittle(compressionField, 4, 2)},
        Damage{"MasksOfAnotherDepth", "bmp24.bmp", setLittle(compressionField, 4, 3)},
        Damage{"PixelsBeyondTheFile", "bmp24.bmp", setLittle(pixelOffsetField, 4, 0x7FFFFFFF)},
        Damage{"HalfOfThePixels", "bmp8.bmp",
               [](Bytes& file) { file.resize(file.size() - file.size() / 4); }}),
    nameOf);

// As in browsers.
INSTANTIATE_TEST_SUITE_P(
    BMP, HarmlessDamageTest,
    testing::Values(Damage{"FileSize", "bmp24.bmp", setLittle(fileSizeField, 4, 0x7FFFFFFF)},
                    Damage{"PictureSize", "bmp24.bmp", setLittle(pictureSizeField, 4, 0x7FFFFFFF)},
                    Damage{"Densities", "bmp24.bmp", setLittle(densityField, 4, 1)}),
    nameOf);

/// A BMP of 4 x 2 pixels that are stored as `runs`, with a palette of two colours.
Bytes runsFile(unsigned depth, const Bytes& runs, std::int32_t width = 4, std::int32_t height = 2) {
    constexpr std::size_t headers = 14 + 40;
    constexpr std::size_t palette = 8;
    Bytes file(headers + palette);
    file[0] = 'B';
    file[1] = 'M';
    setLittle(pixelOffsetField, 4, headers + palette)(file);
    setLittle(headerSizeField, 4, 40)(file);
    setLittle(widthField, 4, static_cast<std::uint32_t>(width))(file);
    setLittle(heightField, 4, static_cast<std::uint32_t>(height))(file);
    setLittle(planesField, 2, 1)(file);
    setLittle(depthField, 2, depth)(file);
    setLittle(compressionField, 4, depth == 8 ? 1 : 2)(file);
    setLittle(coloursField, 4, 2)(file);
    setLittle(headers + 4, 4, 0xFFFFFF)(file);
    file.insert(file.end(), runs.begin(), runs.end());
    return file;
}

TEST(RunsTest, TheWholePictureIsDrawn) {
    EXPECT_TRUE(decoded(runsFile(8, {4, 1, 0, 0, 4, 1, 0, 1})));
    EXPECT_TRUE(decoded(runsFile(8, {4, 1, 0, 0, 4, 1, 0, 0, 0, 1})));
    EXPECT_TRUE(decoded(runsFile(8, {4, 1, 0, 0, 4, 1, 0, 0})));           // no end mark
    EXPECT_TRUE(decoded(runsFile(8, {0, 2, 4, 2, 0, 1})));                 // a jump to the end
    EXPECT_TRUE(decoded(runsFile(4, {4, 0x11, 0, 0, 4, 0x11, 0, 1}, 3)));  // a filled last byte
    EXPECT_TRUE(decoded(runsFile(8, {4, 1, 0, 0, 4, 1, 0, 1}, 4, -2)));
}

TEST(RunsTest, RunsThatLeaveThePictureAreRefused) {
    EXPECT_FALSE(decoded(runsFile(8, {5, 1, 0, 0, 4, 1, 0, 1})));
    EXPECT_FALSE(decoded(runsFile(8, {0, 5, 1, 1, 1, 1, 1, 0, 0, 1})));        // indices
    EXPECT_FALSE(decoded(runsFile(8, {4, 1, 0, 0, 4, 1, 0, 0, 4, 1, 0, 1})));  // a third row
    EXPECT_FALSE(decoded(runsFile(8, {4, 1, 0, 0, 4, 1, 0, 0, 0, 0, 0, 1})));  // its end
    EXPECT_FALSE(decoded(runsFile(8, {0, 2, 5, 0, 0, 1})));                    // jumps
    EXPECT_FALSE(decoded(runsFile(8, {0, 2, 0, 3, 0, 1})));
    EXPECT_FALSE(decoded(runsFile(4, {5, 0x11, 0, 0, 4, 0x11, 0, 1})));
    EXPECT_FALSE(decoded(runsFile(4, {5, 0x11, 0, 0, 4, 0x11, 0, 1}, 3)));
    EXPECT_FALSE(decoded(runsFile(8, {5, 1, 0, 0, 4, 1, 0, 1}, 4, -2)));
}

TEST(RunsTest, RunsThatEndEarlyAreRefused) {
    EXPECT_FALSE(decoded(runsFile(8, {4, 1, 0, 0})));
    EXPECT_FALSE(decoded(runsFile(8, {4, 1, 0, 0, 0, 4, 1, 1})));
}

// ---- PNG (W3C Portable Network Graphics)

constexpr std::size_t headerChunk = 8;
constexpr std::size_t pngDepth = 24;
constexpr std::size_t pngColourType = 25;

// Annex D, bit by bit.
std::uint32_t checksum(const Bytes& file, std::size_t begin, std::size_t end) {
    std::uint32_t remainder = 0xFFFFFFFF;
    for (std::size_t i = begin; i < end; ++i) {
        remainder ^= file.at(i);
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder >> 1U) ^ ((remainder & 1U) != 0 ? 0xEDB88320U : 0U);
        }
    }
    return ~remainder;
}

std::uint32_t big32(const Bytes& file, std::size_t at) {
    return static_cast<std::uint32_t>(file.at(at)) << 24U |
           static_cast<std::uint32_t>(file.at(at + 1)) << 16U |
           static_cast<std::uint32_t>(file.at(at + 2)) << 8U | file.at(at + 3);
}

void setChecksum(Bytes& file, std::size_t chunk) {
    const std::size_t end = chunk + 8 + big32(file, chunk);
    const std::uint32_t value = checksum(file, chunk + 4, end);
    for (std::size_t i = 0; i < 4; ++i) {
        file.at(end + i) = static_cast<std::uint8_t>(value >> (24 - 8 * i));
    }
}

/// The first chunk of `type`.
std::size_t chunkOf(const Bytes& file, std::string_view type) {
    std::size_t at = headerChunk;
    while (std::string_view(reinterpret_cast<const char*>(&file.at(at + 4)), 4) != type) {
        at += 12 + big32(file, at);
    }
    return at;
}

std::function<void(Bytes&)> setByte(std::size_t at, std::uint8_t value) {
    return [=](Bytes& file) { file.at(at) = value; };
}

/// With the right checksum, so that the value alone is wrong.
std::function<void(Bytes&)> setInHeader(std::size_t at, std::uint8_t value) {
    return [=](Bytes& file) {
        file.at(at) = value;
        setChecksum(file, headerChunk);
    };
}

void withoutPixels(Bytes& file) {
    for (;;) {
        const std::size_t pixels = chunkOf(file, "IDAT");
        const auto begin = file.begin() + static_cast<std::ptrdiff_t>(pixels);
        file.erase(begin, begin + 12 + big32(file, pixels));
        if (chunkOf(file, "IEND") == pixels) {
            return;
        }
    }
}

void breakPixelChecksum(Bytes& file) {
    const std::size_t pixels = chunkOf(file, "IDAT");
    file.at(pixels + 8 + big32(file, pixels)) ^= 1U;
}

// What a transfer as text does to the signature.
void addReturn(Bytes& file) { file.insert(file.begin() + 5, '\r'); }
void dropReturn(Bytes& file) { file.erase(file.begin() + 4); }

constexpr const char* png = "icon-256.png";

INSTANTIATE_TEST_SUITE_P(
    PNG, DamagedFileTest,
    testing::Values(Damage{"FirstByteOfTheSignature", png, setByte(0, 0x09)},
                    Damage{"SecondByteOfTheSignature", png, setByte(1, 'p')},
                    Damage{"FourthByteOfTheSignature", png, setByte(3, 'g')},
                    Damage{"SeventhByteOfTheSignature", png, setByte(6, 0)},
                    Damage{"AddedReturn", png, addReturn}, Damage{"DroppedReturn", png, dropReturn},
                    Damage{"ColourType1", png, setInHeader(pngColourType, 1)},
                    Damage{"ColourType9", png, setInHeader(pngColourType, 9)},
                    Damage{"Depth0", png, setInHeader(pngDepth, 0)},
                    Damage{"Depth3", png, setInHeader(pngDepth, 3)},
                    Damage{"Depth99", png, setInHeader(pngDepth, 99)},
                    Damage{"ChecksumOfTheHeader", png, setByte(headerChunk + 8 + 13, 0)},
                    Damage{"NoPixels", png, withoutPixels},
                    Damage{"ChecksumOfThePixels", png, breakPixelChecksum}),
    nameOf);

}  // namespace
}  // namespace glintmark::decoder
