#include "base/graphics/BezierPath.h"

#include <algorithm>

namespace glintmark {

namespace {

// The distance of each control point from its end of the arc, when a cubic curve approximates a
// quarter circle of radius 1 and meets it in the middle: 4/3 * (sqrt(2) - 1).
constexpr double quarterCircleControl = 0.5522847498307936;

}  // namespace

BezierPath BezierPath::roundedRect(Point origin, Size size, double xRadius, double yRadius) {
    const double rx = std::clamp(xRadius, 0.0, size.width / 2);
    const double ry = std::clamp(yRadius, 0.0, size.height / 2);
    const double cx = rx * (1 - quarterCircleControl);  // from a corner to a control point
    const double cy = ry * (1 - quarterCircleControl);
    const double left = origin.x;
    const double right = origin.x + size.width;
    const double bottom = origin.y;
    const double top = origin.y + size.height;

    BezierPath path;
    path.moveTo({left + rx, bottom});
    path.lineTo({right - rx, bottom});
    path.curveTo({right - cx, bottom}, {right, bottom + cy}, {right, bottom + ry});
    path.lineTo({right, top - ry});
    path.curveTo({right, top - cy}, {right - cx, top}, {right - rx, top});
    path.lineTo({left + rx, top});
    path.curveTo({left + cx, top}, {left, top - cy}, {left, top - ry});
    path.lineTo({left, bottom + ry});
    path.curveTo({left, bottom + cy}, {left + cx, bottom}, {left + rx, bottom});
    path.closePath();
    return path;
}

void BezierPath::curveTo(Point control1, Point control2, Point point) {
    elements_.emplace_back(CurveTo{control1, control2, point});
}

void BezierPath::append(const BezierPath& other) {
    // By index and up to the length at the start, so that a path can be appended to itself.
    const std::size_t count = other.elements_.size();
    elements_.reserve(elements_.size() + count);
    for (std::size_t i = 0; i < count; ++i) {
        elements_.push_back(other.elements_[i]);
    }
}

}  // namespace glintmark
