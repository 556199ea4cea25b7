#pragma once

#include <string>
#include <variant>
#include <vector>

#include "base/graphics/Geometry.h"

namespace glintmark {

enum class WindingRule { nonZero = 0, evenOdd = 1 };

/// A path of lines and cubic curves, in points. The y axis points upwards.
class BezierPath {
public:
    struct MoveTo {
        Point point;
    };
    struct LineTo {
        Point point;
    };
    struct CurveTo {
        Point control1;
        Point control2;
        Point point;
    };
    struct Close {};
    using Element = std::variant<MoveTo, LineTo, CurveTo, Close>;

    BezierPath() = default;

    /// A closed rectangle whose corners are quarter ellipses.
    static BezierPath roundedRect(Point origin, Size size, double xRadius, double yRadius);

    void moveTo(Point point) { elements_.emplace_back(MoveTo{point}); }
    void lineTo(Point point) { elements_.emplace_back(LineTo{point}); }
    void curveTo(Point control1, Point control2, Point point);
    void closePath() { elements_.emplace_back(Close{}); }
    void append(const BezierPath& other);

    WindingRule windingRule() const { return windingRule_; }
    void setWindingRule(WindingRule rule) { windingRule_ = rule; }

    const std::vector<Element>& elements() const { return elements_; }

private:
    std::vector<Element> elements_;
    WindingRule windingRule_ = WindingRule::nonZero;
};

}  // namespace glintmark
