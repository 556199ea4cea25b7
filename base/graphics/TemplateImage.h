#pragma once

#include "base/graphics/BezierPath.h"
#include "base/graphics/Geometry.h"

namespace glintmark {

/// A picture of one filled path whose colour the desktop chooses to suit where it shows: only the
/// shape counts. Origin at the lower left, y upwards, in points.
struct TemplateImage {
    Size size;
    BezierPath filledPath;
};

}  // namespace glintmark
