#pragma once

#include "base/graphics/BezierPath.h"
#include "base/graphics/Geometry.h"

namespace glintmark {

/// A picture of one filled path. Only its shape counts: the desktop chooses a colour that suits the
/// background. In points; the origin is at the lower left and the y axis points upwards.
struct TemplateImage {
    Size size;
    BezierPath filledPath;
};

}  // namespace glintmark
