#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "base/graphics/BitmapImageRep.h"
#include "decoder/ImageLimits.h"

// The messages between the program and its image decoder, which runs in another process. Both run
// on the same machine and come from the same build, so the messages are plain structs.
//
// The program sends a `DecodeRequest` over the decoder's socket (SOCK_SEQPACKET), with three
// descriptors: a sealed memory file of the encoded bytes, an empty memory file for the pixels, and
// the writing end of a pipe. A child that the decoder forked for one image receives the request. It
// writes one byte, `accepted`, into the pipe, and later a `DecodeAnswer`. If the child dies, the
// pipe ends without an answer. If the decoder ended before it received the request, the pipe ends
// without `accepted`, too.

namespace glintmark::decoder {

/// The number of the socket's descriptor in the decoder.
inline constexpr int decoderSocket = 3;

/// How much memory a decode may use. Only one image at a time uses the large slot.
enum class DecodeSlot : std::uint32_t { small = 1, large = 2 };

/// The maximum in the small slot. An `Image` keeps bitmaps of up to this size.
inline constexpr std::size_t smallSlotPixelBytes = std::size_t{4} << 20U;

struct DecodeRequest {
    DecodeSlot slot = DecodeSlot::small;
};

inline constexpr std::size_t requestDescriptors = 3;
inline constexpr std::uint8_t accepted = 'a';

/// The last message of a decoder that ends because it was idle, sent over the socket.
inline constexpr std::uint8_t goodbye = 'g';

struct DecodeAnswer {
    enum class Status : std::uint32_t {
        decoded = 1,         ///< The pixels are in their memory file, which has exactly their size.
        needsLargeSlot = 2,  ///< Not decoded: too many pixels for the small slot.
        undecodable = 3,
    };

    Status status = Status::undecodable;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::uint32_t hasAlpha = 0;

    std::size_t pixelBytes() const {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
               BitmapImageRep::bytesPerPixel;
    }
};

/// True if the size of a decoded image is in range for `slot`.
inline bool fitsSlot(const DecodeAnswer& answer, DecodeSlot slot) {
    const auto isSide = [](std::int32_t side) { return side >= 1 && side <= maximumSide; };
    return isSide(answer.width) && isSide(answer.height) &&
           std::int64_t{answer.width} * answer.height <= maximumPixels &&
           (slot == DecodeSlot::large || answer.pixelBytes() <= smallSlotPixelBytes);
}

/// Reads the bytes that a child wrote after `accepted`. Absent unless they are one whole answer and
/// every value is in range for `slot`: an attacker who controls the child can write anything.
inline std::optional<DecodeAnswer> parseAnswer(std::span<const std::uint8_t> bytes,
                                               DecodeSlot slot) {
    using Status = DecodeAnswer::Status;
    DecodeAnswer answer;
    if (bytes.size() != sizeof answer) {
        return std::nullopt;
    }
    std::memcpy(&answer, bytes.data(), sizeof answer);
    const bool isValid =
        answer.status == Status::undecodable ||
        (answer.status == Status::needsLargeSlot && slot == DecodeSlot::small) ||
        (answer.status == Status::decoded && fitsSlot(answer, slot) && answer.hasAlpha <= 1);
    return isValid ? std::optional(answer) : std::nullopt;
}

}  // namespace glintmark::decoder
