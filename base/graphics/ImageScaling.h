#pragma once

#include "base/graphics/BitmapImageRep.h"

namespace glintmark {

/// `source` stretched to `width` x `height` pixels in copy mode: transparent pixels replace what
/// was there. A separable Mitchell-Netravali filter (B = C = 1/3; Mitchell and Netravali,
/// "Reconstruction Filters in Computer Graphics", 1988), widened when shrinking, edges clamped, in
/// premultiplied floating point. Flat colours and opaque images stay exactly so. A bitmap that has
/// the size already comes back as it is; one without pixels becomes a transparent one.
BitmapImageRep scaled(const BitmapImageRep& source, int width, int height);

}  // namespace glintmark
