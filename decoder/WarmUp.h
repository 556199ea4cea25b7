#pragma once

namespace glintmark::decoder {

/// Decodes a tiny picture with each library, so that what they set up once, and the pages this
/// touches, are there before a child is forked. False when a library cannot read its sample.
bool warmUp();

/// The same for the most common format alone: in a child, before its image is there, so that the
/// child's own copies of those pages are.
bool warmUpForPNG();

}  // namespace glintmark::decoder
