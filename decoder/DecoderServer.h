#pragma once

#include <chrono>

#include "decoder/DecoderChild.h"

namespace glintmark::decoder {

struct DecoderServerOptions {
    DecodeFunction decode = decodeImage;
    std::chrono::milliseconds wallLimit{std::chrono::seconds(5)};   ///< For one image.
    std::chrono::milliseconds idleLimit{std::chrono::seconds(30)};  ///< Without a request.
};

/// The image decoder's `main`: serves the requests that arrive at `decoderSocket`, each in a child
/// of its own, until none came for a while or the program at the other end is gone. The calling
/// process ends at once and leaves the work to one that nobody has to wait for. Returns the exit
/// status.
int runDecoder(const DecoderServerOptions& options);

}  // namespace glintmark::decoder
