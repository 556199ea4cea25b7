#pragma once

#include "base/graphics/BitmapImageRep.h"

namespace glintmark {

/// `source` stretched to `width` x `height` pixels. Transparent pixels stay transparent: nothing is
/// drawn below them. A flat colour stays exact, and an opaque image stays opaque to its corners. A
/// bitmap of that size is returned unchanged. A bitmap without pixels becomes a transparent one.
///
/// The filter is separable Mitchell-Netravali (B = C = 1/3; Mitchell and Netravali, "Reconstruction
/// Filters in Computer Graphics", 1988) in premultiplied floating point, widened when shrinking,
/// with clamped edges.
BitmapImageRep scaled(const BitmapImageRep& source, int width, int height);

}  // namespace glintmark
