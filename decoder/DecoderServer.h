#pragma once

#include <chrono>

#include "decoder/DecoderChild.h"

namespace glintmark::decoder {

struct DecoderServerOptions {
    DecodeFunction decode = decodeImage;
    std::chrono::milliseconds decodeTimeout{std::chrono::seconds(5)};  ///< For one image.
    std::chrono::milliseconds idleTimeout{std::chrono::seconds(30)};   ///< Without a request.
};

/// The image decoder's `main`. Serves the requests that arrive at `decoderSocket`, each in a
/// separate child, until the idle timeout or until the program closes the socket. The calling
/// process forks and exits at once; only the forked one serves and returns, with the exit status.
int runDecoder(const DecoderServerOptions& options);

}  // namespace glintmark::decoder
