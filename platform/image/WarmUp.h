#pragma once

namespace glintmark::platform::image {

/// Decodes a tiny picture with each library, so that what they set up once, and the pages this
/// touches, are there before a child is forked. False when a library cannot read its sample.
bool warmUp();

}  // namespace glintmark::platform::image
