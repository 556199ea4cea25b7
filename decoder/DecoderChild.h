#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/system/FileDescriptor.h"
#include "decoder/DecodeImage.h"
#include "decoder/DecoderProtocol.h"
#include "decoder/Sandbox.h"

namespace glintmark::decoder {

using DecodeFunction = std::optional<DecodedImage> (*)(std::span<const std::uint8_t>, PixelStore&);

/// The numbers of the two descriptors that a child keeps.
inline constexpr int childChannel = 0;
inline constexpr int childExchange = 1;

/// What all children of a helper have in common.
struct ChildSettings {
    DecodeFunction decode = decodeImage;
    unsigned cpuSeconds = 3;                      ///< For all images of a link together.
    std::vector<FormatDecoder*> brokenFormats{};  ///< Their images are refused.
};

/// The processor time, in seconds, after which a child that ignores SIGXCPU is killed.
inline constexpr unsigned cpuGraceSeconds = 1;

/// Runs in a process that was forked for the images of one link, and exits: enters the sandbox, and
/// only then reads the first image. Ends when the program closes `channel`.
[[noreturn]] void runDecoderChild(const FileDescriptor& channel, const FileDescriptor& exchange,
                                  const Sandbox& sandbox, const ChildSettings& settings);

/// Runs in a process that was forked for it, and exits: decodes the samples from number `first` on
/// in the sandbox, and writes one byte for each into `results`, 1 if it decodes.
[[noreturn]] void runSelfTest(const FileDescriptor& results, std::size_t first,
                              const Sandbox& sandbox, const ChildSettings& settings);

/// The part that runs inside the sandbox, for one image of `encodedBytes`. `channel` and `exchange`
/// are descriptors, `memory` the mapped exchange file. False if the program has closed the channel.
bool decodeAndAnswer(std::size_t encodedBytes, int channel, int exchange,
                     std::span<std::uint8_t> memory, const ChildSettings& settings);

}  // namespace glintmark::decoder
