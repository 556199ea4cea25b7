#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "decoder/DecodeImage.h"
#include "decoder/HeapPixels.h"
#include "decoder/ImageLimits.h"
#include "decoder/Orientation.h"
#include "decoder/WarmUp.h"
#include "tests/decoder/ImageFiles.h"

namespace glintmark::decoder {
namespace {

class RefusedTest : public testing::TestWithParam<std::string> {};

TEST_P(RefusedTest, DoesNotDecode) {
    const Bytes file = imageFile(GetParam());
    ASSERT_FALSE(file.empty());
    EXPECT_FALSE(decoded(file));
}

std::string testName(const testing::TestParamInfo<std::string>& info) {
    return testNameOf(info.param);
}

INSTANTIATE_TEST_SUITE_P(Truncated, RefusedTest, testing::ValuesIn(imageFileNames("truncated.")),
                         testName);

INSTANTIATE_TEST_SUITE_P(
    Broken, RefusedTest,
    testing::Values("wrong-checksum.png", "long-65536x1.png", "restart-interval-cut.jpg",
                    "without-frame.gif", "without-colours.gif", "code-size-12.gif",
                    "code-beyond-table.gif", "pixels-missing.gif", "blocks-without-end.gif",
                    "frame-without-size.gif", "extension-without-end.gif", "strip-outside.tiff",
                    "bigtiff-header-alone.tiff", "reserved-matrix.avif", "pixels-damaged.webp",
                    "bmp8-rle-truncated.bmp", "without-entries.ico", "runs-end-early.icns",
                    "not-an-image.html"),
    testName);

INSTANTIATE_TEST_SUITE_P(BeyondTheLimits, RefusedTest,
                         testing::Values("65-entries.ico", "65-elements.icns"), testName);

class BombTest : public testing::TestWithParam<std::string> {};

TEST_P(BombTest, ShowsNothingLarge) {
    const Bytes file = imageFile(GetParam());
    ASSERT_FALSE(file.empty());
    const auto bitmap = decoded(file);
    EXPECT_TRUE(!bitmap || bitmap->pixels().size() < 1000);
}

INSTANTIATE_TEST_SUITE_P(Bombs, BombTest, testing::ValuesIn(imageFileNames("bomb-")), testName);

TEST(DecodeImageTest, AnEmptyFileIsNoImage) { EXPECT_FALSE(decoded(Bytes{})); }

TEST(DecodeImageTest, ASignatureAloneIsNoImage) {
    for (const std::string& name : imageFileNames()) {
        Bytes file = imageFile(name);
        file.resize(std::min<std::size_t>(file.size(), 12));
        EXPECT_FALSE(decoded(file)) << name;
    }
}

TEST(DecodeImageTest, FiftyMillionPixelsAreAllowed) {
    const auto bitmap = decoded("large-10000x5000.png");
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->pixelsWide(), 10000);
}

TEST(DecodeImageTest, NoTruncatedImageDoesHarm) {
    for (const std::string& name : smallImageFileNames()) {
        const Bytes file = imageFile(name);
        const std::size_t step = std::max<std::size_t>(1, file.size() / 100);
        for (std::size_t length = 0; length < file.size(); length += step) {
            decoded(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)));
        }
    }
}

TEST(DecodeImageTest, NoDamagedImageDoesHarm) {
    std::mt19937 random(1);
    for (const std::string& name : smallImageFileNames()) {
        const Bytes file = imageFile(name);
        for (int round = 0; round < 20; ++round) {
            Bytes damaged = file;
            for (int i = 0; i < 3; ++i) {
                damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
            }
            const auto bitmap = decoded(damaged);
            EXPECT_TRUE(!bitmap || bitmap->pixelsWide() <= maximumSide);
        }
    }
}

// A picture of this size is turned without a copy; the files with orientations are small.
TEST(OrientationTest, ALargePictureIsTurnedInPlace) {
    constexpr int width = 5000;
    constexpr int height = 2501;
    HeapPixels pixels;
    const auto canvas = pixels.allocate(width, height);
    ASSERT_TRUE(canvas);
    const auto value = [](int x, int y) { return static_cast<std::uint32_t>(y * width + x); };
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::uint32_t pixel = value(x, y);
            std::memcpy(canvas->row(y) + std::ptrdiff_t{4} * x, &pixel, sizeof pixel);
        }
    }
    const DecodedImage image = upright(*canvas, orientationOf(6), true);
    ASSERT_EQ(image.width, height);
    ASSERT_EQ(image.height, width);
    EXPECT_TRUE(image.hasAlpha);
    int wrong = 0;
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            std::uint32_t pixel = 0;
            const std::size_t at =
                static_cast<std::size_t>(y) * height + static_cast<std::size_t>(x);
            std::memcpy(&pixel, &canvas->pixels()[at * 4], sizeof pixel);
            wrong += pixel == value(y, height - 1 - x) ? 0 : 1;
        }
    }
    EXPECT_EQ(wrong, 0);
}

TEST(PixelStoreTest, SizesBeyondTheLimitsGetNoCanvas) {
    HeapPixels pixels;
    EXPECT_FALSE(pixels.allocate(0, 1));
    EXPECT_FALSE(pixels.allocate(1, 0));
    EXPECT_FALSE(pixels.allocate(-1, 5));
    EXPECT_FALSE(pixels.allocate(maximumSide + 1, 1));
    EXPECT_FALSE(pixels.allocate(1, maximumSide + 1));
    EXPECT_FALSE(pixels.allocate(10000, 5001));
    EXPECT_FALSE(pixels.allocate(std::int64_t{1} << 40U, std::int64_t{1} << 40U));
    EXPECT_TRUE(pixels.allocate(maximumSide, 1));
    EXPECT_TRUE(pixels.allocate(1, maximumSide));
}

TEST(PixelStoreTest, ANewCanvasIsTransparent) {
    HeapPixels pixels;
    std::ranges::fill(pixels.allocate(2, 2)->pixels(), std::uint8_t{9});
    const auto canvas = pixels.allocate(2, 2);
    EXPECT_TRUE(std::ranges::all_of(canvas->pixels(), [](auto byte) { return byte == 0; }));
}

TEST(WarmUpTest, EveryLibraryReadsItsSample) {
    EXPECT_TRUE(warmUp());
    EXPECT_TRUE(warmUpForPNG());
}

}  // namespace
}  // namespace glintmark::decoder
