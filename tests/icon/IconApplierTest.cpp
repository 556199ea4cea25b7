#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "icon/IconApplier.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* linkFile = "/home/kim/Desktop/a.webloc";
constexpr const char* failureLine = "Glintmark: アイコン適用失敗 → /home/kim/Desktop/a.webloc";

using Colour = std::array<std::uint8_t, 4>;
constexpr Colour red{255, 0, 0, 255};
constexpr Colour blue{0, 0, 255, 255};
constexpr Colour clear{0, 0, 0, 0};

/// A bitmap whose pixel at (x, y) is `colour(x, y)`.
template <typename ColourAt>
BitmapImageRep bitmap(int width, int height, ColourAt colour) {
    std::vector<std::uint8_t> pixels;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Colour value = colour(x, y);
            pixels.insert(pixels.end(), value.begin(), value.end());
        }
    }
    return {width, height, true, std::move(pixels)};
}

class IconApplierTest : public doubles::PlatformTest {
protected:
    /// The bitmap that the workspace receives for `image`.
    BitmapImageRep applied(Image image) {
        IconApplier::apply(std::make_shared<const Image>(std::move(image)), linkFile);
        const auto& icon = platform().workspace.icons().back();
        EXPECT_EQ(icon.path, linkFile);
        EXPECT_EQ(icon.image.size(), (Size{512, 512}));
        const auto result = icon.image.bitmap();
        EXPECT_EQ(result->pixelsWide(), 512);
        EXPECT_EQ(result->pixelsHigh(), 512);
        return *result;
    }

    static Colour pixel(const BitmapImageRep& bitmap, int x, int y) {
        Colour colour{};
        const auto offset = static_cast<std::ptrdiff_t>(y) * bitmap.pixelsWide() + x;
        std::copy_n(bitmap.pixels().begin() + offset * 4, 4, colour.begin());
        return colour;
    }
};

TEST_F(IconApplierTest, ASmallImageIsEnlarged) {
    const auto icon = applied(
        Image(bitmap(16, 16, [](int x, int y) { return (x < 8) == (y < 8) ? red : blue; })));
    EXPECT_EQ(pixel(icon, 0, 0), red);
    EXPECT_EQ(pixel(icon, 511, 0), blue);
    EXPECT_EQ(pixel(icon, 0, 511), blue);
    EXPECT_EQ(pixel(icon, 511, 511), red);
    EXPECT_EQ(pixel(icon, 200, 200), red);
    EXPECT_EQ(pixel(icon, 312, 200), blue);
}

TEST_F(IconApplierTest, APreparedIconIsSetAsItIs) {
    for (const int edge : {16, 512, 1024}) {
        const auto image =
            std::make_shared<const Image>(bitmap(edge, edge, [](int, int) { return red; }));
        IconApplier::apply(IconApplier::prepared(image), linkFile);
        const auto set = platform().workspace.icons().back().image.bitmap();
        const auto prepared = platform().workspace.preparedIcons().back().bitmap();
        EXPECT_EQ(set->pixels().data(), prepared->pixels().data());
        EXPECT_EQ(set->pixelsWide(), 512);
        EXPECT_EQ(pixel(*set, 511, 511), red);
    }
}

TEST_F(IconApplierTest, AWideImageIsSqueezedAndNeitherCutNorPadded) {
    const auto icon =
        applied(Image(bitmap(1024, 512, [](int x, int) { return x < 512 ? red : blue; })));
    for (const int y : {0, 255, 511}) {
        EXPECT_EQ(pixel(icon, 0, y), red);
        EXPECT_EQ(pixel(icon, 250, y), red);
        EXPECT_EQ(pixel(icon, 262, y), blue);
        EXPECT_EQ(pixel(icon, 511, y), blue);
    }
}

TEST_F(IconApplierTest, TransparentPixelsStayTransparent) {
    const auto icon =
        applied(Image(bitmap(32, 64, [](int, int y) { return y < 32 ? clear : red; })));
    EXPECT_EQ(icon.alphaAt(0, 0), 0.0);
    EXPECT_EQ(icon.alphaAt(511, 200), 0.0);
    EXPECT_EQ(pixel(icon, 256, 511), red);
}

TEST_F(IconApplierTest, TheIconAlwaysMeasures512Points) {
    for (const auto& [width, height] :
         std::array<std::array<int, 2>, 3>{{{1, 1}, {3, 700}, {700, 3}}}) {
        const auto icon = applied(Image(bitmap(width, height, [](int, int) { return red; })));
        EXPECT_EQ(pixel(icon, 0, 0), red);
        EXPECT_EQ(pixel(icon, 511, 511), red);
    }
}

TEST_F(IconApplierTest, ABitmapOfZeroSizeGivesATransparentIcon) {
    for (const auto& image : {Image(bitmap(0, 0, [](int, int) { return red; })),
                              Image(bitmap(0, 5, [](int, int) { return red; })),
                              Image(bitmap(5, 0, [](int, int) { return red; }))}) {
        const auto icon = applied(image);
        EXPECT_TRUE(icon.hasAlpha());
        EXPECT_TRUE(std::ranges::all_of(icon.pixels(), [](auto byte) { return byte == 0; }));
    }
}

TEST_F(IconApplierTest, AnImageWhosePixelsCannotBeHadIsAFailure) {
    for (const auto& image : {Image(Size{0, 0}), Image(Size{16, 16})}) {
        IconApplier::apply(std::make_shared<const Image>(image), linkFile);
    }
    EXPECT_THAT(platform().workspace.preparedIcons(), IsEmpty());
    EXPECT_THAT(platform().workspace.icons(), IsEmpty());
    EXPECT_THAT(log().messages(), ElementsAre(failureLine, failureLine));
}

TEST_F(IconApplierTest, TheWorkspaceLearnsWhichFileWasReadIfThatIsKnown) {
    const platform::FileIdentity read{1, 2, linkFile, false};
    const auto image = std::make_shared<const Image>(bitmap(1, 1, [](int, int) { return red; }));
    IconApplier::apply(IconApplier::prepared(image), linkFile, read);
    IconApplier::apply(image, linkFile);
    EXPECT_EQ(platform().workspace.icons()[0].read, read);
    EXPECT_EQ(platform().workspace.icons()[1].read, std::nullopt);
}

TEST_F(IconApplierTest, TheScaledPictureOfALargeImageIsTheIcon) {
    const BitmapImageRep picture = bitmap(512, 512, [](int x, int) { return x < 9 ? red : blue; });
    const auto icon = applied(Image(Size{3000, 2000}, picture, edgeAlphas(picture)));
    EXPECT_EQ(icon.pixels().data(), picture.pixels().data());
}

TEST_F(IconApplierTest, SuccessIsLogged) {
    applied(Image(bitmap(1, 1, [](int, int) { return red; })));
    EXPECT_THAT(log().messages(),
                ElementsAre("Glintmark: アイコン適用成功 → /home/kim/Desktop/a.webloc"));
}

TEST_F(IconApplierTest, ARefusalIsLoggedAndNotRetried) {
    platform().workspace.refuse();
    applied(Image(bitmap(1, 1, [](int, int) { return red; })));
    EXPECT_EQ(platform().workspace.icons().size(), 1U);
    EXPECT_THAT(log().messages(), ElementsAre(failureLine));
}

}  // namespace
}  // namespace glintmark
