#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/graphics/BitmapImageRep.h"

namespace glintmark {
namespace {

using testing::ElementsAre;

BitmapImageRep twoByTwo() {
    return {2, 2, true, {1, 2, 3, 0, 4, 5, 6, 51, 7, 8, 9, 102, 10, 11, 12, 255}};
}

TEST(BitmapImageRepTest, AlphaIsReadByColumnAndRowFromTheTop) {
    const BitmapImageRep bitmap = twoByTwo();
    EXPECT_EQ(bitmap.alphaAt(0, 0), 0.0);
    EXPECT_EQ(bitmap.alphaAt(1, 0), 0.2);
    EXPECT_EQ(bitmap.alphaAt(0, 1), 0.4);
    EXPECT_EQ(bitmap.alphaAt(1, 1), 1.0);
}

TEST(BitmapImageRepTest, OutsideThereIsNoAlpha) {
    const BitmapImageRep bitmap = twoByTwo();
    EXPECT_EQ(bitmap.alphaAt(-1, 0), std::nullopt);
    EXPECT_EQ(bitmap.alphaAt(0, -1), std::nullopt);
    EXPECT_EQ(bitmap.alphaAt(2, 0), std::nullopt);
    EXPECT_EQ(bitmap.alphaAt(0, 2), std::nullopt);
}

TEST(BitmapImageRepTest, AnEmptyBitmapHasNoPixels) {
    const BitmapImageRep empty(0, 0, true, {});
    EXPECT_TRUE(empty.pixels().empty());
    EXPECT_EQ(empty.alphaAt(0, 0), std::nullopt);
}

TEST(BitmapImageRepTest, CopiesShareThePixels) {
    const BitmapImageRep bitmap = twoByTwo();
    const BitmapImageRep copy = bitmap;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(copy.pixels().data(), bitmap.pixels().data());
}

TEST(BitmapImageRepTest, ForeignMemoryLivesAsLongAsTheLastCopy) {
    auto owner = std::make_shared<std::vector<std::uint8_t>>(4, std::uint8_t{9});
    const std::weak_ptr<void> watched = owner;
    std::optional<BitmapImageRep> copy;
    {
        const std::span<const std::uint8_t> pixels = *owner;
        const BitmapImageRep bitmap(1, 1, false, std::move(owner), pixels);
        copy = bitmap;
    }
    EXPECT_FALSE(watched.expired());
    EXPECT_THAT(copy->pixels(), ElementsAre(9, 9, 9, 9));
    copy.reset();
    EXPECT_TRUE(watched.expired());
}

TEST(BitmapImageRepDeathTest, PixelsMustFillTheSize) {
    EXPECT_DEATH(BitmapImageRep(2, 1, true, {1, 2, 3, 4}), "pixels do not fill its size");
    EXPECT_DEATH(BitmapImageRep(1, 1, true, {1, 2, 3, 4, 5}), "pixels do not fill its size");
    EXPECT_DEATH(BitmapImageRep(-1, -1, true, {1, 2, 3, 4}), "negative size");
}

}  // namespace
}  // namespace glintmark
