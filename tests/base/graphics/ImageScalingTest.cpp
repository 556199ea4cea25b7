#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include "base/graphics/ImageScaling.h"

namespace glintmark {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::size_t offset(const BitmapImageRep& bitmap, int x, int y) {
    return (static_cast<std::size_t>(y) * static_cast<std::size_t>(bitmap.pixelsWide()) +
            static_cast<std::size_t>(x)) *
           4;
}

BitmapImageRep noise(int width, int height, unsigned seed) {
    std::mt19937 random(seed);
    Bytes pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    for (auto& byte : pixels) {
        byte = static_cast<std::uint8_t>(random());
    }
    return {width, height, true, std::move(pixels)};
}

BitmapImageRep flat(int width, int height, std::array<std::uint8_t, 4> colour) {
    Bytes pixels;
    for (int i = 0; i < width * height; ++i) {
        pixels.insert(pixels.end(), colour.begin(), colour.end());
    }
    return {width, height, colour[3] != 255, std::move(pixels)};
}

// The definition, written without regard for speed: the cubic with parameters B and C in its
// published form, and each weight of each direction computed separately, in long double.
long double kernel(long double distance) {
    const long double b = 1.0L / 3;
    const long double c = 1.0L / 3;
    const long double x = std::abs(distance);
    if (x < 1) {
        return ((12 - 9 * b - 6 * c) * x * x * x + (-18 + 12 * b + 6 * c) * x * x + (6 - 2 * b)) /
               6;
    }
    if (x < 2) {
        return ((-b - 6 * c) * x * x * x + (6 * b + 30 * c) * x * x + (-12 * b - 48 * c) * x +
                (8 * b + 24 * c)) /
               6;
    }
    return 0;
}

/// The weight of each source position for `destination`.
std::vector<long double> weights(int destination, int sourceSize, int destinationSize) {
    const long double step = static_cast<long double>(sourceSize) / destinationSize;
    const long double widening = std::max(1.0L, step);
    const long double centre = (destination + 0.5L) * step - 0.5L;
    std::vector<long double> found(static_cast<std::size_t>(sourceSize));
    long double sum = 0;
    const int reach = static_cast<int>(std::ceil(2 * widening)) + 1;
    const int middle = static_cast<int>(std::floor(centre));
    for (int i = middle - reach; i <= middle + reach; ++i) {
        const long double weight = kernel((i - centre) / widening);
        found[static_cast<std::size_t>(std::clamp(i, 0, sourceSize - 1))] += weight;
        sum += weight;
    }
    for (auto& weight : found) {
        weight /= sum;
    }
    return found;
}

std::array<long double, 4> referencePixel(const BitmapImageRep& source, int x, int y, int width,
                                          int height) {
    const auto columns = weights(x, source.pixelsWide(), width);
    const auto rows = weights(y, source.pixelsHigh(), height);
    std::array<long double, 4> sum{};
    for (int sy = 0; sy < source.pixelsHigh(); ++sy) {
        if (rows[static_cast<std::size_t>(sy)] == 0) {
            continue;
        }
        for (int sx = 0; sx < source.pixelsWide(); ++sx) {
            const long double weight =
                rows[static_cast<std::size_t>(sy)] * columns[static_cast<std::size_t>(sx)];
            if (weight == 0) {
                continue;
            }
            const std::uint8_t* pixel = &source.pixels()[offset(source, sx, sy)];
            for (std::size_t c = 0; c < 3; ++c) {
                sum[c] += weight * pixel[c] * pixel[3] / 255;
            }
            sum[3] += weight * pixel[3];
        }
    }
    for (std::size_t c = 0; c < 3; ++c) {
        sum[c] = sum[3] > 0 ? sum[c] / sum[3] * 255 : 0;
    }
    for (auto& channel : sum) {
        channel = std::clamp(channel, 0.0L, 255.0L);
    }
    return sum;
}

/// Both ends of a row or column, and places between them.
std::vector<int> places(int size) {
    std::vector<int> found;
    for (int i = 0; i < size; ++i) {
        if (i < 3 || i >= size - 3 || i % 23 == 0) {
            found.push_back(i);
        }
    }
    return found;
}

/// The largest difference from the reference in any channel, over a lattice of pixels that includes
/// all four borders. A pixel of alpha 0 has no colour to compare.
long double maximumError(const BitmapImageRep& source, int width, int height) {
    const BitmapImageRep result = scaled(source, width, height);
    long double maximum = 0;
    for (const int y : places(height)) {
        for (const int x : places(width)) {
            const auto expected = referencePixel(source, x, y, width, height);
            const std::uint8_t* pixel = &result.pixels()[offset(result, x, y)];
            maximum = std::max(maximum, std::abs(expected[3] - pixel[3]));
            if (pixel[3] == 0) {
                continue;
            }
            for (std::size_t c = 0; c < 3; ++c) {
                maximum = std::max(maximum, std::abs(expected[c] - pixel[c]));
            }
        }
    }
    return maximum;
}

TEST(ImageScalingTest, EnlargingFollowsTheDefinition) {
    EXPECT_LE(maximumError(noise(16, 16, 1), 512, 512), 1);
}

TEST(ImageScalingTest, ShrinkingFollowsTheDefinition) {
    EXPECT_LE(maximumError(noise(1024, 1024, 2), 512, 512), 1);
}

TEST(ImageScalingTest, SqueezingOneDirectionFollowsTheDefinition) {
    EXPECT_LE(maximumError(noise(1024, 512, 3), 512, 512), 1);
}

TEST(ImageScalingTest, OddProportionsFollowTheDefinition) {
    EXPECT_LE(maximumError(noise(37, 700, 4), 512, 512), 1);
    EXPECT_LE(maximumError(noise(1, 3, 5), 512, 512), 1);
    EXPECT_LE(maximumError(noise(300, 200, 6), 7, 1), 1);
}

TEST(ImageScalingTest, AFlatColourStaysExactlyTheSame) {
    for (const std::array<std::uint8_t, 4> colour :
         {std::array<std::uint8_t, 4>{1, 127, 254, 255}, {200, 3, 77, 128}, {9, 8, 7, 1}}) {
        for (const auto& [width, height] : {std::pair{16, 16}, {1, 1}, {33, 7}, {600, 513}}) {
            const BitmapImageRep result = scaled(flat(width, height, colour), 512, 512);
            const BitmapImageRep expected = flat(512, 512, colour);
            EXPECT_TRUE(std::ranges::equal(result.pixels(), expected.pixels()))
                << width << " x " << height << ", alpha " << int{colour[3]};
        }
    }
}

TEST(ImageScalingTest, AnOpaqueImageStaysOpaqueToItsCorners) {
    for (const int size : {16, 48, 180, 511, 513, 1024}) {
        BitmapImageRep source = noise(size, size, 7);
        Bytes pixels(source.pixels().begin(), source.pixels().end());
        for (std::size_t i = 3; i < pixels.size(); i += 4) {
            pixels[i] = 255;
        }
        const BitmapImageRep result =
            scaled(BitmapImageRep(size, size, false, std::move(pixels)), 512, 512);
        EXPECT_FALSE(result.hasAlpha());
        for (std::size_t i = 3; i < result.pixels().size(); i += 4) {
            ASSERT_EQ(result.pixels()[i], 255) << "from " << size << ", byte " << i;
        }
    }
}

TEST(ImageScalingTest, AWhiteDiscStaysWhite) {
    for (const int size : {16, 64, 256, 1024}) {
        Bytes pixels(static_cast<std::size_t>(size) * static_cast<std::size_t>(size) * 4);
        for (int i = 0; i < size * size; ++i) {
            const double radius = std::hypot(i % size - size / 2.0, i / size - size / 2.0);
            if (radius > size * 0.45) {
                continue;  // transparent black
            }
            std::fill_n(&pixels[static_cast<std::size_t>(i) * 4], 4, std::uint8_t{255});
        }
        const BitmapImageRep result =
            scaled(BitmapImageRep(size, size, true, std::move(pixels)), 512, 512);
        for (std::size_t i = 0; i < result.pixels().size(); i += 4) {
            if (result.pixels()[i + 3] < 16) {
                continue;
            }
            ASSERT_EQ(result.pixels()[i], 255) << "from " << size << ", byte " << i;
            ASSERT_EQ(result.pixels()[i + 1], 255);
            ASSERT_EQ(result.pixels()[i + 2], 255);
        }
    }
}

TEST(ImageScalingTest, ColoursOfTransparentPixelsDoNotBleed) {
    Bytes pixels;
    for (int i = 0; i < 16; ++i) {
        const bool left = i % 4 < 2;  // opaque green beside a transparent red
        const Bytes pixel = left ? Bytes{0, 255, 0, 255} : Bytes{255, 0, 0, 0};
        pixels.insert(pixels.end(), pixel.begin(), pixel.end());
    }
    const BitmapImageRep result = scaled(BitmapImageRep(4, 4, true, std::move(pixels)), 64, 64);
    for (std::size_t i = 0; i < result.pixels().size(); i += 4) {
        ASSERT_EQ(result.pixels()[i], 0);
    }
}

TEST(ImageScalingTest, TheWholeImageIsStretched) {
    // Left half black, right half white: the border ends up in the middle of the square.
    Bytes pixels;
    for (int i = 0; i < 1024 * 512; ++i) {
        pixels.insert(pixels.end(), 3, i % 1024 < 512 ? 0 : 255);
        pixels.push_back(255);
    }
    const BitmapImageRep result =
        scaled(BitmapImageRep(1024, 512, false, std::move(pixels)), 512, 512);
    EXPECT_EQ(result.pixelsWide(), 512);
    EXPECT_EQ(result.pixelsHigh(), 512);
    EXPECT_EQ(result.pixels()[offset(result, 250, 300)], 0);
    EXPECT_EQ(result.pixels()[offset(result, 261, 300)], 255);
}

TEST(ImageScalingTest, ABitmapOfTheRightSizeIsReturnedUnchanged) {
    const BitmapImageRep source = noise(512, 512, 8);
    EXPECT_EQ(scaled(source, 512, 512).pixels().data(), source.pixels().data());
}

TEST(ImageScalingTest, ABitmapWithoutPixelsBecomesTransparent) {
    const BitmapImageRep result = scaled(BitmapImageRep(0, 0, false, {}), 512, 512);
    EXPECT_EQ(result.pixelsWide(), 512);
    EXPECT_TRUE(result.hasAlpha());
    EXPECT_TRUE(std::ranges::all_of(result.pixels(), [](auto byte) { return byte == 0; }));
}

}  // namespace
}  // namespace glintmark
