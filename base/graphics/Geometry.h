#pragma once

#include <cstdint>

namespace glintmark {

struct Point {
    double x = 0;
    double y = 0;

    bool operator==(const Point&) const = default;
};

/// Width and height in points.
struct Size {
    double width = 0;
    double height = 0;

    bool operator==(const Size&) const = default;
};

/// `value` without its fraction. A value that is not finite or does not fit 64 bits is a
/// programming error and ends the process.
std::int64_t truncatedToInt(double value);

}  // namespace glintmark
