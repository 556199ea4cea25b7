#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "base/graphics/Geometry.h"

namespace glintmark {
namespace {

TEST(GeometryTest, TruncationDropsTheFraction) {
    EXPECT_EQ(truncatedToInt(0.0), 0);
    EXPECT_EQ(truncatedToInt(47.999), 47);
    EXPECT_EQ(truncatedToInt(-1.5), -1);
    EXPECT_EQ(truncatedToInt(-0.9), 0);
    EXPECT_EQ(truncatedToInt(-9223372036854775808.0), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(truncatedToInt(std::nextafter(9223372036854775808.0, 0)), 9223372036854774784);
}

TEST(GeometryTest, PointsAndSizesCompareByValue) {
    EXPECT_EQ((Point{1, 2}), (Point{1, 2}));
    EXPECT_FALSE((Point{1, 2}) == (Point{2, 1}));
    EXPECT_EQ((Size{1, 2}), (Size{1, 2}));
    EXPECT_FALSE((Size{1, 2}) == (Size{2, 1}));
}

TEST(GeometryDeathTest, ANumberThatIsNotFiniteOrDoesNotFitEndsTheProcess) {
    EXPECT_DEATH(truncatedToInt(std::nan("")), "either infinite or NaN");
    EXPECT_DEATH(truncatedToInt(std::numeric_limits<double>::infinity()), "either infinite or NaN");
    EXPECT_DEATH(truncatedToInt(-std::numeric_limits<double>::infinity()),
                 "either infinite or NaN");
    EXPECT_DEATH(truncatedToInt(9223372036854775808.0), "does not fit");
    EXPECT_DEATH(truncatedToInt(std::nextafter(-9223372036854775808.0, -1e300)), "does not fit");
}

}  // namespace
}  // namespace glintmark
