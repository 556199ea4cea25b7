#include "base/graphics/Geometry.h"

#include <cmath>

#include "base/system/FatalError.h"

namespace glintmark {

std::int64_t truncatedToInt(double value) {
    // Both bounds are powers of two and so exact in floating point.
    constexpr double beyondMaximum = 9223372036854775808.0;
    if (!std::isfinite(value)) {
        fatalError("Double value cannot be converted to Int because it is either infinite or NaN");
    }
    if (value >= beyondMaximum || value < -beyondMaximum) {
        fatalError("Double value cannot be converted to Int because it does not fit");
    }
    return static_cast<std::int64_t>(value);
}

}  // namespace glintmark
