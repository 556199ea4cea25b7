#pragma once

#include <cstddef>

#include "base/system/FileDescriptor.h"
#include "decoder/DecodeImage.h"
#include "decoder/DecoderProtocol.h"
#include "decoder/Sandbox.h"

namespace glintmark::decoder {

using DecodeFunction = std::optional<DecodedImage> (*)(std::span<const std::uint8_t>, PixelStore&);

/// The numbers of the two descriptors that the child keeps.
inline constexpr int childAnswer = 0;
inline constexpr int childPixels = 1;

/// One image to decode, and where the pixels and the answer go.
struct DecodeTask {
    DecodeSlot slot = DecodeSlot::small;
    FileDescriptor encoded;
    FileDescriptor pixels;
    FileDescriptor answer;
};

/// Runs in a process that was forked for one image, and exits: enters the sandbox, and only then
/// reads the image, decodes it and answers. `mappedBefore` is the number of bytes that the process
/// had mapped before the task.
[[noreturn]] void runDecoderChild(const DecodeTask& task, const Sandbox& sandbox,
                                  std::size_t mappedBefore, DecodeFunction decode);

/// The part that runs inside the sandbox. `pixels` and `answer` are descriptors.
void decodeAndAnswer(std::span<const std::uint8_t> encoded, DecodeSlot slot, int pixels, int answer,
                     DecodeFunction decode);

}  // namespace glintmark::decoder
