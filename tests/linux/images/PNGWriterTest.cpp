#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "linux/images/PNGWriter.h"
#include "tests/linux/PNGReading.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAreArray;
using testing::Pair;
using testing::UnorderedElementsAre;

BitmapImageRep noise(int width, int height) {
    std::mt19937 random(1);
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width * height) * 4);
    for (auto& byte : pixels) {
        byte = static_cast<std::uint8_t>(random());
    }
    return {width, height, true, std::move(pixels)};
}

TEST(PNGWriterTest, EveryPixelIsReadBack) {
    for (const auto& bitmap : {noise(512, 512), noise(1, 7), square(64, 1, 2, 3, 0)}) {
        const ReadPNG read = readPNG(encodedPNG(bitmap));
        EXPECT_EQ(read.width, bitmap.pixelsWide());
        EXPECT_EQ(read.height, bitmap.pixelsHigh());
        EXPECT_THAT(read.pixels, ElementsAreArray(bitmap.pixels()));
    }
}

TEST(PNGWriterTest, EqualPicturesMakeEqualFiles) {
    EXPECT_EQ(encodedPNG(noise(40, 30)), encodedPNG(noise(40, 30)));
}

TEST(PNGWriterTest, TextsAreAddedWithoutChangingThePixels) {
    const BitmapImageRep bitmap = noise(33, 5);
    const std::string plain = encodedPNG(bitmap);
    const PNGText texts[] = {{"Thumb::URI", "file:///a%20b"}, {"Software", "Glintmark"}};
    const std::string file = withTexts(plain, texts);
    const ReadPNG read = readPNG(file);
    EXPECT_THAT(read.pixels, ElementsAreArray(bitmap.pixels()));
    EXPECT_THAT(read.texts, UnorderedElementsAre(Pair("Thumb::URI", "file:///a%20b"),
                                                 Pair("Software", "Glintmark")));
    EXPECT_TRUE(file.ends_with(plain.substr(33)));
}

TEST(PNGWriterTest, ALongTextIsReadBack) {
    const std::string uri = "file:///" + std::string(12'000, 'a');
    const PNGText texts[] = {{"Thumb::URI", uri}};
    EXPECT_EQ(readPNG(withTexts(encodedPNG(square(2, 9, 9, 9)), texts)).texts["Thumb::URI"], uri);
}

}  // namespace
}  // namespace glintmark::platform
