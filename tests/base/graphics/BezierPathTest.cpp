#include <gtest/gtest.h>

#include <cmath>

#include "base/graphics/BezierPath.h"

namespace glintmark {
namespace {

using MoveTo = BezierPath::MoveTo;
using LineTo = BezierPath::LineTo;
using CurveTo = BezierPath::CurveTo;
using Close = BezierPath::Close;

Point start(const BezierPath& path) { return std::get<MoveTo>(path.elements().front()).point; }

std::vector<CurveTo> curves(const BezierPath& path) {
    std::vector<CurveTo> found;
    for (const auto& element : path.elements()) {
        if (const auto* curve = std::get_if<CurveTo>(&element)) {
            found.push_back(*curve);
        }
    }
    return found;
}

Point middle(Point from, const CurveTo& curve) {
    return {(from.x + 3 * curve.control1.x + 3 * curve.control2.x + curve.point.x) / 8,
            (from.y + 3 * curve.control1.y + 3 * curve.control2.y + curve.point.y) / 8};
}

TEST(BezierPathTest, ElementsAreKeptInOrder) {
    BezierPath path;
    path.moveTo({1, 2});
    path.lineTo({3, 4});
    path.curveTo({5, 6}, {7, 8}, {9, 10});
    path.closePath();
    ASSERT_EQ(path.elements().size(), 4U);
    EXPECT_EQ(std::get<MoveTo>(path.elements()[0]).point, (Point{1, 2}));
    EXPECT_EQ(std::get<LineTo>(path.elements()[1]).point, (Point{3, 4}));
    EXPECT_EQ(std::get<CurveTo>(path.elements()[2]).control2, (Point{7, 8}));
    EXPECT_TRUE(std::holds_alternative<Close>(path.elements()[3]));
}

TEST(BezierPathTest, ARoundedRectangleHasFourCornersAndEnds) {
    const BezierPath path = BezierPath::roundedRect({1, 1}, {16, 16}, 3.5, 3.5);
    ASSERT_EQ(curves(path).size(), 4U);
    EXPECT_EQ(start(path), (Point{4.5, 1}));
    EXPECT_EQ(curves(path)[0].point, (Point{17, 4.5}));
    EXPECT_EQ(curves(path)[1].point, (Point{13.5, 17}));
    EXPECT_EQ(curves(path)[2].point, (Point{1, 13.5}));
    EXPECT_EQ(curves(path)[3].point, start(path));
    EXPECT_TRUE(std::holds_alternative<Close>(path.elements().back()));
}

TEST(BezierPathTest, TheMiddleOfACornerLiesOnItsCircle) {
    const BezierPath path = BezierPath::roundedRect({0, 0}, {10, 10}, 5, 5);
    const Point at = middle({5, 0}, curves(path)[0]);
    EXPECT_NEAR(std::hypot(at.x - 5, at.y - 5), 5, 1e-9);
    EXPECT_NEAR(at.x - 5, 5 - at.y, 1e-9);
}

TEST(BezierPathTest, RadiiBeyondHalfTheSizeMakeAnEllipse) {
    const BezierPath path = BezierPath::roundedRect({0, 0}, {20, 10}, 100, 100);
    EXPECT_EQ(start(path), (Point{10, 0}));
    EXPECT_EQ(curves(path)[0].point, (Point{20, 5}));
    EXPECT_EQ(curves(path)[1].point, (Point{10, 10}));
}

TEST(BezierPathTest, WithoutRadiiTheCornersAreSharp) {
    const BezierPath path = BezierPath::roundedRect({0, 0}, {2, 1}, 0, -1);
    EXPECT_EQ(start(path), (Point{0, 0}));
    EXPECT_EQ(curves(path)[0].control1, (Point{2, 0}));
    EXPECT_EQ(curves(path)[0].point, (Point{2, 0}));
}

TEST(BezierPathTest, AppendingCopiesTheElements) {
    BezierPath path = BezierPath::roundedRect({0, 0}, {4, 4}, 1, 1);
    const std::size_t before = path.elements().size();
    BezierPath other;
    other.moveTo({9, 9});
    path.append(other);
    EXPECT_EQ(path.elements().size(), before + 1);
    EXPECT_EQ(std::get<MoveTo>(path.elements().back()).point, (Point{9, 9}));
}

TEST(BezierPathTest, APathCanBeAppendedToItself) {
    BezierPath path;
    path.moveTo({1, 1});
    path.lineTo({2, 2});
    path.append(path);
    ASSERT_EQ(path.elements().size(), 4U);
    EXPECT_EQ(std::get<LineTo>(path.elements()[3]).point, (Point{2, 2}));
}

TEST(BezierPathTest, TheWindingRuleIsNonZeroUntilSet) {
    BezierPath path;
    EXPECT_EQ(path.windingRule(), WindingRule::nonZero);
    path.setWindingRule(WindingRule::evenOdd);
    EXPECT_EQ(path.windingRule(), WindingRule::evenOdd);
}

}  // namespace
}  // namespace glintmark
