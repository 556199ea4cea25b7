#pragma once

#include "decoder/DecoderChild.h"

namespace glintmark::decoder {

/// The image decoder's `main`. Forks a child, and another for each order that arrives at
/// `helperSocket`, until the program closes the socket. Then it kills the children that are left.
/// The calling process forks and exits at once; only the forked one serves and returns, with the
/// exit status.
int runDecoder(const ChildSettings& settings = {});

}  // namespace glintmark::decoder
