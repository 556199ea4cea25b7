#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "base/graphics/BitmapImageRep.h"
#include "decoder/ImageLimits.h"

// How the resident program and its image decoder talk. Both run on the same machine and come from
// the same build, so that plain structs do.
//
// The program sends a `DecodeRequest` over the decoder's socket (SOCK_SEQPACKET), with three
// descriptors: a sealed memory file of the encoded bytes, an empty memory file for the pixels, and
// the writing end of a pipe. A process that the decoder has forked for one image takes it from
// there and writes one byte into the pipe, `accepted`, then a `DecodeAnswer`. The pipe ends without
// an answer when that process dies, and without even the first byte when the decoder was gone
// before it saw the request.

namespace glintmark::decoder {

/// The number at which the decoder finds its socket.
inline constexpr int decoderSocket = 3;

/// How much memory a decode may take. The large slot is for one image at a time.
enum class DecodeSlot : std::uint32_t { small = 1, large = 2 };

/// The bytes of pixels that fit the small slot; an `Image` keeps as many.
inline constexpr std::size_t smallSlotPixels = std::size_t{4} << 20U;

struct DecodeRequest {
    DecodeSlot slot = DecodeSlot::small;
};

inline constexpr std::size_t requestDescriptors = 3;
inline constexpr std::uint8_t accepted = 'a';

/// Sent over the socket by a decoder that ends because it was idle, as its last message.
inline constexpr std::uint8_t goodbye = 'g';

struct DecodeAnswer {
    enum class Status : std::uint32_t {
        decoded = 1,         ///< The pixels are in their memory file, which has just their size.
        needsLargeSlot = 2,  ///< Not decoded: the pixels do not fit the slot.
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

/// What a child wrote, after `accepted`. Absent unless it is one whole answer whose every value is
/// in range for `slot`: a child that was taken over may write anything.
inline std::optional<DecodeAnswer> parseAnswer(std::span<const std::uint8_t> bytes,
                                               DecodeSlot slot) {
    using Status = DecodeAnswer::Status;
    DecodeAnswer answer;
    if (bytes.size() != sizeof answer) {
        return std::nullopt;
    }
    std::memcpy(&answer, bytes.data(), sizeof answer);
    if (answer.status == Status::undecodable) {
        return answer;
    }
    if (answer.status == Status::needsLargeSlot && slot == DecodeSlot::small) {
        return answer;
    }
    if (answer.status != Status::decoded) {
        return std::nullopt;
    }
    if (answer.width < 1 || answer.width > maximumSide) {
        return std::nullopt;
    }
    if (answer.height < 1 || answer.height > maximumSide) {
        return std::nullopt;
    }
    if (std::int64_t{answer.width} * answer.height > maximumPixels) {
        return std::nullopt;
    }
    if (slot == DecodeSlot::small && answer.pixelBytes() > smallSlotPixels) {
        return std::nullopt;
    }
    if (answer.hasAlpha > 1) {
        return std::nullopt;
    }
    return answer;
}

}  // namespace glintmark::decoder
