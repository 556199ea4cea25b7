#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "decoder/DecodeImage.h"
#include "tests/decoder/ImageFiles.h"

namespace glintmark::decoder {
namespace {

// The patterns of the test images. Most images have 6 x 5 pixels; those of lossy formats have
// 32 x 24 pixels of `smooth`.

Colour colours(int x, int y) { return {x * 40, y * 50, x * y * 10}; }
Colour coloursWithAlpha(int x, int y) { return {x * 40, y * 50, x * y * 10, (x + y) * 25}; }
Colour coloursWithMask(int x, int y) {
    return {x * 40, y * 50, x * y * 10, (x + y) % 3 == 0 ? 0 : 255};
}

int index(int x, int y) { return (x + y * 6) % 16; }
Colour sixteen(int i) { return {i * 17, 255 - i * 17, i % 2 * 200}; }
Colour indexed(int x, int y) { return sixteen(index(x, y)); }
Colour indexedWithMask(int x, int y) {
    Colour colour = indexed(x, y);
    colour.alpha = coloursWithMask(x, y).alpha;
    return colour;
}

Colour noise(int x, int y) {
    return sixteen((x * x * x * 7 + y * y * y * 13 + x * x * y * 5 + x * y * 3) / 8 % 16);
}
Colour nothing(int /*x*/, int /*y*/) { return {0, 0, 0, 0}; }

Colour bilevel(int x, int y) {
    const int value = (x * y + x) % 3 == 1 ? 255 : 0;
    return {value, value, value};
}
Colour bilevelWithMask(int x, int y) {
    Colour colour = bilevel(x, y);
    colour.alpha = coloursWithMask(x, y).alpha;
    return colour;
}

int shade(int x, int y) { return x * 40 + y * 10; }
Colour grey(int x, int y) { return {shade(x, y), shade(x, y), shade(x, y)}; }
Colour greyWithAlpha(int x, int y) { return {shade(x, y), shade(x, y), shade(x, y), (x + y) * 25}; }

/// `colours` as light, from 0 to 255, in the curve of sRGB (IEC 61966-2-1).
Colour brightColours(int x, int y) {
    const auto encoded = [](int light) {
        const double v = light / 255.0;
        return static_cast<int>(
            std::lround(255 * (v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055)));
    };
    const Colour light = colours(x, y);
    return {encoded(light.red), encoded(light.green), encoded(light.blue)};
}

Colour stripes(int x, int y) {
    const int value = (x + y) / 64 % 2 * 255;
    return {value, value, value};
}

Colour smooth(int x, int y) { return {x * 8, y * 10, 128}; }
Colour smoothGrey(int x, int /*y*/) { return {x * 8, x * 8, x * 8}; }
Colour smoothRotated(int x, int y) { return smooth(y, 23 - x); }
Colour smoothHalf(int x, int y) { return {x * 8, y * 10, 128, 128}; }

Colour icon(int x, int y) { return {x * 7 % 256, y * 9 % 256, 128}; }
Colour iconWithMask(int x, int y) { return {x * 7 % 256, y * 9 % 256, 128, x > 3 ? 255 : 0}; }
Colour checks(int x, int y) {
    const int value = (x + y) % 2 == 1 ? 0 : 255;
    return {value, value, value};
}
Colour checksWithMask(int x, int y) {
    Colour colour = checks(x, y);
    colour.alpha = x > 3 ? 255 : 0;
    return colour;
}

/// `pattern` with transparent pixels where `hidden` is true.
Pattern hiding(const Pattern& pattern, std::function<bool(int, int)> hidden) {
    return [pattern, hidden = std::move(hidden)](int x, int y) {
        return hidden(x, y) ? Colour{0, 0, 0, 0} : pattern(x, y);
    };
}

Colour aroundColours(int x, int y) {
    return x >= 2 && x < 8 && y >= 1 && y < 6 ? colours(x - 2, y - 1) : Colour{255, 0, 255};
}

/// 6 x 5 pixels of `pattern` at (`left`, `top`) of a larger canvas that is otherwise transparent.
Pattern inside(const Pattern& pattern, int left, int top) {
    return [=](int x, int y) {
        const bool covered = x >= left && x < left + 6 && y >= top && y < top + 5;
        return covered ? pattern(x - left, y - top) : Colour{0, 0, 0, 0};
    };
}

struct FileCase {
    std::string name;
    int width;
    int height;
    bool hasAlpha;
    Pattern pattern;
    int tolerance = 0;
};

class FormatsTest : public testing::TestWithParam<FileCase> {};

TEST_P(FormatsTest, ShowsItsPattern) {
    const FileCase& file = GetParam();
    const auto bitmap = decoded(file.name);
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->pixelsWide(), file.width);
    EXPECT_EQ(bitmap->pixelsHigh(), file.height);
    EXPECT_EQ(bitmap->hasAlpha(), file.hasAlpha);
    EXPECT_LE(maximumDifference(*bitmap, file.pattern), file.tolerance);
}

std::string testName(const testing::TestParamInfo<FileCase>& info) {
    return testNameOf(info.param.name);
}

INSTANTIATE_TEST_SUITE_P(
    PNG, FormatsTest,
    testing::Values(FileCase{"rgb8.png", 6, 5, false, colours},
                    FileCase{"rgb16.png", 6, 5, false, colours},
                    FileCase{"rgba8.png", 6, 5, true, coloursWithAlpha},
                    FileCase{"rgba8-interlaced.png", 6, 5, true, coloursWithAlpha},
                    FileCase{"rgba16-interlaced.png", 6, 5, true, coloursWithAlpha},
                    FileCase{"gray1.png", 6, 5, false, bilevel},
                    FileCase{"gray8.png", 6, 5, false, grey},
                    FileCase{"gray16.png", 6, 5, false, grey},
                    FileCase{"gray-alpha8.png", 6, 5, true, greyWithAlpha},
                    FileCase{"gray-alpha16.png", 6, 5, true, greyWithAlpha},
                    FileCase{"palette4.png", 6, 5, false, indexed},
                    FileCase{"palette4-interlaced.png", 6, 5, false, indexed},
                    FileCase{"palette4-trns.png", 6, 5, true,
                             [](int x, int y) {
                                 Colour colour = indexed(x, y);
                                 if (index(x, y) < 3) {
                                     colour.alpha = index(x, y) * 100;
                                 }
                                 return colour;
                             }},
                    FileCase{"rgb8-trns.png", 6, 5, true,
                             hiding(colours, [](int x, int y) { return x == 2 && y == 1; })},
                    FileCase{"gray8-trns.png", 6, 5, true,
                             hiding(grey, [](int x, int y) { return shade(x, y) == shade(3, 2); })},
                    // Texts are skipped unread, and oversized profiles.
                    FileCase{"bomb-ztxt.png", 6, 5, false, colours},
                    FileCase{"bomb-iccp.png", 6, 5, false, colours}),
    testName);

INSTANTIATE_TEST_SUITE_P(
    JPEG, FormatsTest,
    testing::Values(FileCase{"baseline.jpg", 32, 24, false, smooth, 6},
                    FileCase{"progressive.jpg", 32, 24, false, smooth, 6},
                    FileCase{"subsampled.jpg", 32, 24, false, smooth, 12},
                    FileCase{"restart-markers.jpg", 32, 24, false, smooth, 6},
                    FileCase{"gray.jpg", 32, 24, false, smoothGrey, 6},
                    FileCase{"cmyk-adobe.jpg", 32, 24, false, smooth, 8},
                    FileCase{"cmyk-plain.jpg", 32, 24, false, smooth, 8},
                    FileCase{"exif-rotated.jpg", 24, 32, false, smoothRotated, 6},
                    FileCase{"without-end-mark.jpg", 32, 24, false, smooth, 6}),
    testName);

INSTANTIATE_TEST_SUITE_P(
    GIF, FormatsTest,
    testing::Values(FileCase{"opaque87a.gif", 6, 5, false, indexed},
                    FileCase{"interlaced.gif", 6, 5, false, indexed},
                    FileCase{"local-colours.gif", 6, 5, false, indexed},
                    FileCase{"animated.gif", 6, 5, false, indexed},
                    FileCase{"transparent.gif", 6, 5, true,
                             hiding(indexed, [](int x, int y) { return index(x, y) == 5; })},
                    FileCase{"frame-inside-screen.gif", 10, 8, true, inside(indexed, 3, 2)},
                    // A frame is cut at the edges of its screen.
                    FileCase{"frame-beyond-screen.gif", 2, 1, false, indexed},
                    FileCase{"frame-over-edges.gif", 6, 5, true, inside(indexed, 2, 1)},
                    FileCase{"frame-outside-screen.gif", 6, 5, true, nothing},
                    FileCase{"screen-of-size-zero.gif", 6, 5, false, indexed},
                    FileCase{"code-size-1.gif", 6, 5, false, bilevel},
                    FileCase{"code-size-11.gif", 6, 5, false, indexed},
                    FileCase{"without-clear-code.gif", 6, 5, false, indexed},
                    FileCase{"full-code-table.gif", 160, 80, false, noise},
                    FileCase{"index-beyond-colours.gif", 6, 5, false,
                             [](int x, int /*y*/) { return x == 1 ? Colour{} : sixteen(3); }}),
    testName);

INSTANTIATE_TEST_SUITE_P(
    TIFF, FormatsTest,
    testing::Values(FileCase{"rgba-unassociated.tiff", 6, 5, true, coloursWithAlpha},
                    // Division by a small alpha loses precision.
                    FileCase{"rgba-associated.tiff", 6, 5, true, coloursWithAlpha, 3},
                    FileCase{"rgba-unspecified.tiff", 6, 5, true, coloursWithAlpha, 3},
                    FileCase{"rgb-big-endian.tiff", 6, 5, false, colours},
                    FileCase{"rgb-bottom-up.tiff", 6, 5, false, colours},
                    FileCase{"rgb16.tiff", 6, 5, false, colours},
                    FileCase{"palette.tiff", 6, 5, false, colours},
                    FileCase{"inverted-gray.tiff", 6, 5, false, grey},
                    FileCase{"bilevel.tiff", 6, 5, false, bilevel},
                    FileCase{"bilevel-g4.tiff", 6, 5, false, bilevel},
                    FileCase{"deflate.tiff", 6, 5, false, colours},
                    FileCase{"second-page-larger.tiff", 6, 5, false, colours},
                    FileCase{"largest-page-broken.tiff", 6, 5, false, colours},
                    FileCase{"second-page-cut.tiff", 6, 5, false, colours},
                    FileCase{"old-jpeg.tiff", 32, 24, false, smooth, 12}),
    testName);

INSTANTIATE_TEST_SUITE_P(
    WebP, FormatsTest,
    testing::Values(FileCase{"lossless.webp", 6, 5, false, colours},
                    FileCase{"lossless-alpha.webp", 6, 5, true, coloursWithAlpha},
                    FileCase{"says-no-alpha.webp", 6, 5, false, colours},
                    FileCase{"exif-8.webp", 6, 5, false, colours},
                    FileCase{"exif-8-identified.webp", 6, 5, false, colours},
                    FileCase{"lossy.webp", 32, 24, false, smooth, 12},
                    FileCase{"lossy-alpha.webp", 32, 24, true, smoothHalf, 12},
                    FileCase{"animated.webp", 6, 5, true, coloursWithAlpha},
                    FileCase{"frame-inside-canvas.webp", 10, 8, true, inside(colours, 2, 2)}),
    testName);

INSTANTIATE_TEST_SUITE_P(
    AVIF, FormatsTest,
    testing::Values(FileCase{"lossless.avif", 6, 5, false, colours},
                    FileCase{"lossy.avif", 32, 24, false, smooth, 12},
                    FileCase{"lossy-alpha.avif", 32, 24, true, smoothHalf, 12},
                    FileCase{"ten-bit.avif", 32, 24, false, smooth, 12},
                    FileCase{"animated.avif", 32, 24, true, smooth, 12},
                    FileCase{"clean-aperture.avif", 6, 5, false, colours},
                    FileCase{"clean-aperture-rotated.avif", 6, 5, false, colours},
                    FileCase{"clean-aperture-too-wide.avif", 12, 8, false, aroundColours},
                    FileCase{"clean-aperture-divided-by-zero.avif", 12, 8, false, aroundColours}),
    testName);

INSTANTIATE_TEST_SUITE_P(Long, FormatsTest,
                         testing::Values(FileCase{"long-65535x1.png", 65535, 1, false, stripes},
                                         FileCase{"long-1x65535.gif", 1, 65535, false, stripes},
                                         FileCase{"long-65535x1.bmp", 65535, 1, false, stripes},
                                         FileCase{"long-1x65535.tiff", 1, 65535, false, stripes}),
                         testName);

// Their pixels are stored in other colour spaces; in sRGB all show the usual colours. In dark
// pixels the losses of the JPEG grow; unconverted it is 104 away.
INSTANTIATE_TEST_SUITE_P(
    ColourProfile, FormatsTest,
    testing::Values(FileCase{"display-p3.png", 6, 5, false, colours, 2},
                    FileCase{"display-p3-alpha.png", 6, 5, true, coloursWithAlpha, 2},
                    FileCase{"adobe-rgb.png", 6, 5, false, colours, 2},
                    FileCase{"adobe-rgb-parametric.png", 6, 5, false, colours, 2},
                    FileCase{"linear-rgb.png", 6, 5, false, brightColours, 1},
                    FileCase{"srgb-profile.png", 6, 5, false, colours},
                    FileCase{"display-p3-two-markers.jpg", 32, 24, false, smooth, 20},
                    FileCase{"profile-marker-missing.jpg", 32, 24, false, smooth, 6},
                    FileCase{"display-p3.webp", 6, 5, false, colours, 2},
                    FileCase{"display-p3-profile.avif", 6, 5, false, colours, 2},
                    FileCase{"display-p3-primaries.avif", 6, 5, false, colours, 2},
                    FileCase{"bt2020-primaries.avif", 6, 5, false, colours, 2},
                    // Not converted: its curve would need tone mapping.
                    FileCase{"bt2020-perceptual-quantizer.avif", 6, 5, false, colours},
                    FileCase{"adobe-rgb.tiff", 6, 5, false, colours, 2},
                    FileCase{"gray-with-rgb-profile.tiff", 6, 5, false, grey}),
    testName);

class ColoursTest : public testing::TestWithParam<std::string> {};

TEST_P(ColoursTest, ShowsTheUsualColours) {
    const auto bitmap = decoded(GetParam());
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->pixelsWide(), 6);
    EXPECT_EQ(bitmap->pixelsHigh(), 5);
    EXPECT_EQ(maximumDifference(*bitmap, colours), 0);
}

std::string coloursName(const testing::TestParamInfo<std::string>& info) {
    return testNameOf(info.param);
}

INSTANTIATE_TEST_SUITE_P(TIFF, ColoursTest, testing::ValuesIn(imageFileNames("orientation-")),
                         coloursName);
// The numbers 1 to 8, and Exif data that say nothing.
INSTANTIATE_TEST_SUITE_P(Exif, ColoursTest, testing::ValuesIn(imageFileNames("exif-", ".png")),
                         coloursName);
// Broken profiles, and those of other kinds, change nothing.
INSTANTIATE_TEST_SUITE_P(BrokenProfile, ColoursTest,
                         testing::ValuesIn(imageFileNames("broken-profile-")), coloursName);
// Turned against the clock by the first number of right angles, then mirrored.
INSTANTIATE_TEST_SUITE_P(AVIF, ColoursTest, testing::ValuesIn(imageFileNames("rotate-")),
                         coloursName);

INSTANTIATE_TEST_SUITE_P(
    BMP, FormatsTest,
    testing::Values(FileCase{"bmp1.bmp", 6, 5, false, bilevel},
                    FileCase{"bmp4.bmp", 6, 5, false, indexed},
                    FileCase{"bmp8.bmp", 6, 5, false, indexed},
                    FileCase{"bmp16-555.bmp", 6, 5, false, colours, 5},
                    FileCase{"bmp16-565.bmp", 6, 5, false, colours, 5},
                    FileCase{"bmp24.bmp", 6, 5, false, colours},
                    FileCase{"bmp24-top-down.bmp", 6, 5, false, colours},
                    FileCase{"bmp32.bmp", 6, 5, false, colours},
                    FileCase{"bmp32-alpha-v5.bmp", 6, 5, true, coloursWithAlpha},
                    FileCase{"bmp32-alpha-unused-v5.bmp", 6, 5, false, colours},
                    FileCase{"profile-before-picture.bmp", 6, 5, false, colours},
                    FileCase{"palette-of-300.bmp", 6, 5, false, indexed},
                    FileCase{"bmp8-os2.bmp", 6, 5, false, indexed},
                    FileCase{"bmp24-os2-short.bmp", 6, 5, false, colours},
                    FileCase{"bmp8-rle.bmp", 6, 5, false, indexed},
                    FileCase{"bmp4-rle.bmp", 6, 5, false, indexed},
                    FileCase{"bmp8-rle-top-down.bmp", 6, 5, false, indexed},
                    FileCase{"bmp4-rle-top-down.bmp", 6, 5, false, indexed},
                    FileCase{"bmp8-rle-jump.bmp", 6, 5, false,
                             [](int x, int y) {
                                 if (y == 4 && x < 2) {
                                     return sixteen(7);
                                 }
                                 // One to the right, two up, from the third pixel.
                                 return y == 2 && x >= 3 ? sixteen(9) : sixteen(0);
                             }}),
    testName);

INSTANTIATE_TEST_SUITE_P(
    ICO, FormatsTest,
    testing::Values(FileCase{"ico1.ico", 6, 5, true, bilevelWithMask},
                    FileCase{"ico4.ico", 6, 5, true, indexedWithMask},
                    FileCase{"ico8.ico", 6, 5, true, indexedWithMask},
                    FileCase{"ico16.ico", 6, 5, true, coloursWithMask, 5},
                    FileCase{"ico24.ico", 6, 5, true, coloursWithMask},
                    FileCase{"ico32.ico", 6, 5, true, coloursWithAlpha},
                    FileCase{"ico32-alpha-unused.ico", 6, 5, true, coloursWithMask},
                    FileCase{"png.ico", 6, 5, true, coloursWithAlpha},
                    FileCase{"cursor.cur", 6, 5, true, coloursWithMask},
                    FileCase{"without-mask.ico", 6, 5, true, colours},
                    FileCase{"without-mask-before-another.ico", 6, 5, true, colours},
                    FileCase{"length-too-short.ico", 6, 5, true, coloursWithMask},
                    FileCase{"length-zero.ico", 6, 5, true, coloursWithMask},
                    FileCase{"png-length-too-short.ico", 6, 5, true, coloursWithAlpha},
                    FileCase{"profile-before-picture.ico", 6, 5, true, coloursWithMask},
                    FileCase{"profile-before-mask.ico", 6, 5, true, coloursWithMask},
                    FileCase{"profile-after-mask.ico", 6, 5, true, coloursWithMask},
                    FileCase{"all-depths.ico", 6, 5, true, coloursWithAlpha},
                    FileCase{"64-entries.ico", 6, 5, true, coloursWithMask},
                    FileCase{"directory-lies.ico", 9, 7, false,
                             [](int x, int y) { return colours(x % 6, y % 5); }},
                    FileCase{"best-is-broken.ico", 6, 5, true, coloursWithMask}),
    testName);

INSTANTIATE_TEST_SUITE_P(
    ICNS, FormatsTest,
    testing::Values(FileCase{"is32-mask.icns", 16, 16, true, iconWithMask},
                    FileCase{"it32-mask.icns", 128, 128, true, iconWithMask},
                    FileCase{"il32-without-mask.icns", 32, 32, false, icon},
                    FileCase{"is32-uncompressed.icns", 16, 16, true, iconWithMask},
                    FileCase{"il32-uncompressed.icns", 32, 32, false, icon},
                    FileCase{"ih32-uncompressed-padded.icns", 48, 48, true, iconWithMask},
                    FileCase{"ic05-argb.icns", 32, 32, true, iconWithMask},
                    FileCase{"ic04-argb.icns", 16, 16, true, iconWithMask},
                    FileCase{"ic07-png.icns", 128, 128, false, icon},
                    FileCase{"jpeg2000-beside.icns", 16, 16, true, iconWithMask},
                    FileCase{"icn-one-bit.icns", 32, 32, true, checksWithMask},
                    FileCase{"icon-unmasked.icns", 32, 32, false, checks},
                    FileCase{"icl4-bit-mask.icns", 32, 32, true,
                             [](int x, int) {
                                 static constexpr int sixteenColours[][3] = {
                                     {255, 255, 255}, {252, 243, 5},   {255, 100, 2},
                                     {221, 8, 6},     {242, 8, 132},   {70, 0, 165},
                                     {0, 0, 212},     {2, 171, 234},   {31, 183, 20},
                                     {0, 100, 17},    {86, 44, 5},     {144, 113, 58},
                                     {192, 192, 192}, {128, 128, 128}, {64, 64, 64},
                                     {0, 0, 0}};
                                 const auto& c = sixteenColours[x % 16];
                                 return Colour{c[0], c[1], c[2], x > 3 ? 255 : 0};
                             }}),
    testName);

TEST(ICNSTest, TheEightBitPaletteIsACubeAndFourRamps) {
    const auto bitmap = decoded("icl8-bit-mask.icns");
    ASSERT_TRUE(bitmap);
    // The pixel in column x and row y has the index x + 32 * y.
    const auto pixel = [&](std::size_t i) {
        const auto at = bitmap->pixels().subspan(i * 4, 4);
        return std::vector<int>(at.begin(), at.end());
    };
    using testing::ElementsAre;
    EXPECT_THAT(pixel(5), ElementsAre(255, 255, 0, 255));
    EXPECT_THAT(pixel(6), ElementsAre(255, 204, 255, 255));
    EXPECT_THAT(pixel(36 + 6 + 1), ElementsAre(204, 204, 204, 255));
    EXPECT_THAT(pixel(214), ElementsAre(0, 0, 51, 255));
    EXPECT_THAT(pixel(215), ElementsAre(238, 0, 0, 255));
    EXPECT_THAT(pixel(234), ElementsAre(0, 17, 0, 255));
    EXPECT_THAT(pixel(236), ElementsAre(0, 0, 221, 255));
    EXPECT_THAT(pixel(245), ElementsAre(238, 238, 238, 255));
    EXPECT_THAT(pixel(255), ElementsAre(0, 0, 0, 255));
}

}  // namespace
}  // namespace glintmark::decoder
