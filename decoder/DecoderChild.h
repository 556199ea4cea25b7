#pragma once

#include <cstddef>

#include "base/system/FileDescriptor.h"
#include "decoder/DecodeImage.h"
#include "decoder/DecoderProtocol.h"
#include "decoder/Sandbox.h"

namespace glintmark::decoder {

using DecodeFunction = std::optional<DecodedImage> (*)(std::span<const std::uint8_t>, PixelStore&);

/// The numbers at which the child finds its two descriptors once it has closed all others.
inline constexpr int childAnswer = 0;
inline constexpr int childPixels = 1;

/// One image to decode and where the outcome goes.
struct DecodeTask {
    DecodeSlot slot = DecodeSlot::small;
    FileDescriptor encoded;
    FileDescriptor pixels;
    FileDescriptor answer;
};

/// Runs in a process that was forked for one image, and ends it: enters the sandbox, only then
/// looks at the image, decodes, answers. `mappedBefore` is the size of the process before the task.
[[noreturn]] void runDecoderChild(const DecodeTask& task, const Sandbox& sandbox,
                                  std::size_t mappedBefore, DecodeFunction decode);

/// The part of it that happens inside the sandbox, with the descriptors named.
void decodeAndAnswer(std::span<const std::uint8_t> encoded, DecodeSlot slot, int pixels, int answer,
                     DecodeFunction decode);

}  // namespace glintmark::decoder
