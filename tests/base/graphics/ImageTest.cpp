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

TEST(ImageTest, ALargeImageMakesItsPixelsEachTime) {
    int asked = 0;
    const Image image(Size{1, 1}, [&]() -> std::optional<BitmapImageRep> {
        ++asked;
        return BitmapImageRep(1, 1, false, {1, 2, 3, 255});
    });
    EXPECT_EQ(asked, 0);
    EXPECT_TRUE(image.bitmap());
    EXPECT_TRUE(image.bitmap());
    EXPECT_EQ(asked, 2);
}

TEST(ImageTest, ALargeImageWhosePixelsAreGoneHasNoBitmap) {
    const Image image(Size{9, 9}, []() -> std::optional<BitmapImageRep> { return std::nullopt; });
    EXPECT_FALSE(image.bitmap());
}

}  // namespace
}  // namespace glintmark
