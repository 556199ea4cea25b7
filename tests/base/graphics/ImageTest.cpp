#include <gtest/gtest.h>

#include "base/graphics/Image.h"

namespace glintmark {
namespace {

TEST(ImageTest, OnePixelCountsAsOnePoint) {
    const Image image(BitmapImageRep(3, 2, false, std::vector<std::uint8_t>(24)));
    EXPECT_EQ(image.size(), (Size{3, 2}));
    ASSERT_TRUE(image.bitmap());
    EXPECT_EQ(image.bitmap()->pixelsWide(), 3);
}

TEST(ImageTest, AnImageMayHaveNoBitmap) {
    const Image image(Size{12.5, 7});
    EXPECT_EQ(image.size(), (Size{12.5, 7}));
    EXPECT_FALSE(image.bitmap());
}

TEST(ImageTest, ALargeImageKeepsItsSizeAndItsEdgesBesideItsPicture) {
    const BitmapImageRep picture(1, 1, true, {1, 2, 3, 255});
    const EdgeAlphas edges{0, 10, 20};
    const Image image(Size{2000, 1000}, picture, edges);
    EXPECT_EQ(image.size(), (Size{2000, 1000}));
    EXPECT_EQ(image.bitmap()->pixels().data(), picture.pixels().data());
    EXPECT_EQ(image.edgeAlphas(), edges);
}

TEST(ImageTest, TheEdgesOfAWholeBitmapAreRead) {
    const Image image(BitmapImageRep(1, 2, true, {0, 0, 0, 7, 0, 0, 0, 9}));
    constexpr std::uint8_t outside = 255;
    EXPECT_EQ(image.edgeAlphas(),
              (EdgeAlphas{7, 7, 9, 9, 7, 9, 9, 9, outside, outside, outside, outside}));
}

TEST(ImageTest, WithoutAlphaChannelOrPixelsThereAreNoEdges) {
    EXPECT_FALSE(Image(Size{3, 3}).edgeAlphas());
    EXPECT_FALSE(Image(BitmapImageRep(0, 0, true, {})).edgeAlphas());
    EXPECT_FALSE(Image(BitmapImageRep(1, 1, false, {1, 2, 3, 0})).edgeAlphas());
    EXPECT_FALSE(Image(Size{9, 9}, BitmapImageRep(1, 1, false, {1, 2, 3, 0}), {}).edgeAlphas());
}

}  // namespace
}  // namespace glintmark
