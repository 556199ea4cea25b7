#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

#include "favicon/IconCandidate.h"
#include "tests/favicon/Pictures.h"

namespace glintmark {
namespace {

bool isTransparent(const Picture& picture) {
    return IconCandidate(picture.image(), IconSource::htmlIcon).hasTransparency;
}

std::int64_t score(double width, bool transparent, IconSource source) {
    return candidateOfSize({width, 1}, transparent, source).score();
}

TEST(IconCandidateTest, AnOpaqueImageWithAnAlphaChannelIsNotTransparent) {
    EXPECT_FALSE(isTransparent(Picture(8, 8)));
}

TEST(IconCandidateTest, AnImageWithoutAlphaChannelIsNotTransparent) {
    EXPECT_FALSE(isTransparent(Picture(8, 8).fill(0).withoutAlpha()));
}

TEST(IconCandidateTest, AnImageWithoutPixelsIsNotTransparent) {
    const auto image = std::make_shared<const Image>(Size{16, 16});
    EXPECT_FALSE(IconCandidate(image, IconSource::htmlIcon).hasTransparency);
}

TEST(IconCandidateTest, AnEmptyBitmapIsNotTransparent) {
    EXPECT_FALSE(isTransparent(Picture(0, 0)));
    EXPECT_FALSE(isTransparent(Picture(4, 0)));
    EXPECT_FALSE(isTransparent(Picture(0, 4)));
}

TEST(IconCandidateTest, OfALargeImageTheEdgesOfItsOwnPixelsCount) {
    const BitmapImageRep opaque = Picture(512, 512).bitmap();
    const BitmapImageRep clear = Picture(512, 512).fill(0).bitmap();
    const auto image = [](const BitmapImageRep& picture, const BitmapImageRep& whole) {
        return std::make_shared<const Image>(Size{2000, 2000}, picture, edgeAlphas(whole));
    };
    EXPECT_TRUE(IconCandidate(image(opaque, clear), IconSource::htmlIcon).hasTransparency);
    EXPECT_FALSE(IconCandidate(image(clear, opaque), IconSource::htmlIcon).hasTransparency);
}

TEST(IconCandidateTest, OneTransparentPixelAloneCountsEightTimes) {
    EXPECT_TRUE(isTransparent(Picture(1, 1).fill(0)));
}

TEST(IconCandidateTest, InTwoByTwoPixelsEachCountsAsOftenAsItIsSampled) {
    EXPECT_FALSE(isTransparent(Picture(2, 2).set(0, 0, 0)));  // sampled twice
    EXPECT_TRUE(isTransparent(Picture(2, 2).set(1, 0, 0)));   // three times
    EXPECT_TRUE(isTransparent(Picture(2, 2).set(0, 1, 0)));   // three times
    EXPECT_TRUE(isTransparent(Picture(2, 2).set(1, 1, 0)));   // four times
}

TEST(IconCandidateTest, ADiscOnATransparentSquareIsTransparent) {
    Picture picture(32, 32);
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 32; ++x) {
            if (std::hypot(x - 15.5, y - 15.5) > 16) {
                picture.set(x, y, 0);
            }
        }
    }
    EXPECT_TRUE(isTransparent(picture));
}

TEST(IconCandidateTest, AMarginOfOneTransparentPixelIsTransparent) {
    Picture picture(16, 16);
    for (int i = 0; i < 16; ++i) {
        picture.set(i, 0, 0).set(i, 15, 0).set(0, i, 0).set(15, i, 0);
    }
    EXPECT_TRUE(isTransparent(picture));
}

TEST(IconCandidateTest, ATransparentMiddleDoesNotCount) {
    Picture picture(16, 16);
    for (int y = 2; y < 14; ++y) {
        for (int x = 2; x < 14; ++x) {
            picture.set(x, y, 0);
        }
    }
    EXPECT_FALSE(isTransparent(picture));
}

TEST(IconCandidateTest, ThreeOfTheTwelveSamplesAreNeeded) {
    EXPECT_FALSE(isTransparent(Picture(16, 16).set(0, 0, 0).set(15, 0, 0)));
    EXPECT_TRUE(isTransparent(Picture(16, 16).set(0, 0, 0).set(15, 0, 0).set(0, 15, 0)));
}

// Odd and different, so that the tests notice a swap of x and y, or a half that is rounded wrongly.
constexpr int oddWidth = 9;
constexpr int oddHeight = 7;

// In a picture of 9 x 7 pixels: the corners, the middles of the edges, one step inside the corners.
constexpr std::array<std::array<int, 2>, 12> sampledPoints{{
    {0, 0},
    {8, 0},
    {0, 6},
    {8, 6},
    {4, 0},
    {4, 6},
    {0, 3},
    {8, 3},
    {1, 1},
    {7, 1},
    {1, 5},
    {7, 5},
}};

TEST(IconCandidateTest, EachOfTheTwelvePointsIsSampled) {
    for (std::size_t i = 0; i < sampledPoints.size(); ++i) {
        Picture picture(oddWidth, oddHeight);
        for (std::size_t k = 0; k < 3; ++k) {
            const auto& [x, y] = sampledPoints.at((i + k) % sampledPoints.size());
            picture.set(x, y, 0);
        }
        EXPECT_TRUE(isTransparent(picture)) << "points " << i << " and the next two";
    }
}

TEST(IconCandidateTest, NoOtherPixelIsSampled) {
    Picture picture = Picture(oddWidth, oddHeight).fill(0);
    for (const auto& [x, y] : sampledPoints) {
        picture.set(x, y, 255);
    }
    EXPECT_FALSE(isTransparent(picture));
}

TEST(IconCandidateTest, AlphaCountsOnlyBelowNinetyFiveHundredths) {
    // 242 / 255 = 0.949 and 243 / 255 = 0.953.
    EXPECT_TRUE(isTransparent(Picture(4, 4).fill(242)));
    EXPECT_FALSE(isTransparent(Picture(4, 4).fill(243)));
}

TEST(IconCandidateTest, TheScoreAddsWidthTransparencyAndSource) {
    EXPECT_EQ(score(256, true, IconSource::googleAPI), 2766);
    EXPECT_EQ(score(1024, true, IconSource::manifest), 3027);
    EXPECT_EQ(score(180, false, IconSource::htmlAppleTouchIcon), 2182);
    EXPECT_EQ(score(127, true, IconSource::htmlIcon), 647);
    EXPECT_EQ(score(32, true, IconSource::faviconICO), 537);
    EXPECT_EQ(score(0, false, IconSource::appleTouchIcon), 1);
}

TEST(IconCandidateTest, AWidthOf128IsWorth2001MoreThanOneOf127) {
    EXPECT_EQ(score(128, false, IconSource::htmlIcon) - score(127, false, IconSource::htmlIcon),
              2001);
}

TEST(IconCandidateTest, WidthBeyond512EarnsNothing) {
    EXPECT_EQ(score(512, false, IconSource::htmlIcon), score(1024, false, IconSource::htmlIcon));
}

TEST(IconCandidateTest, AFractionOfAPointIsCutOff) {
    EXPECT_EQ(score(127.9, false, IconSource::appleTouchIcon), 128);
}

TEST(IconCandidateTest, TheHeightDoesNotCount) {
    EXPECT_EQ(candidateOfSize({32, 512}, false, IconSource::htmlIcon).score(), 52);
}

TEST(IconCandidateDeathTest, AWidthThatIsNotANumberEndsTheProcess) {
    const auto candidate =
        candidateOfSize({std::numeric_limits<double>::quiet_NaN(), 1}, false, IconSource::htmlIcon);
    EXPECT_DEATH((void)candidate.score(), "infinite or NaN");
}

}  // namespace
}  // namespace glintmark
