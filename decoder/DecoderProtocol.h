#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "base/graphics/BitmapImageRep.h"
#include "base/graphics/EdgeAlphas.h"
#include "decoder/ImageLimits.h"

// The messages between the program, its image decoder (the helper, another process) and the
// helper's children. All run on the same machine and come from the same build, so the messages are
// plain structs, sent over sockets that keep their borders (SOCK_SEQPACKET).
//
// The helper forks a child when it starts and when it is ordered to. A `HelperNotice::ready`
// brings the program's end of the child's channel, and the file through which the two exchange
// bytes. The program writes an encoded image into the file and sends a `DecodeRequest` over the
// channel; the child replies with a `DecodeAnswer`. It may ask for room before, which the program
// grants or refuses with a `RoomReply`. A child serves the images of one link, one after another.

namespace glintmark::decoder {

/// The number of the helper's socket in the helper.
inline constexpr int helperSocket = 3;

struct HelperOrder {
    enum class Kind : std::uint32_t {
        fork = 1,   ///< Fork another child.
        limitTime,  ///< Lower the child's processor time to `seconds`.
        addRoom,    ///< Let the child map as much as a large image needs.
        kill,
        replace,  ///< Kill the child, and fork another.
    };

    Kind kind = Kind::fork;
    std::uint32_t child = 0;
    std::uint32_t seconds = 0;
};

struct HelperNotice {
    enum class Kind : std::uint32_t {
        ready = 1,     ///< With two descriptors: the child's channel and its exchange file.
        roomAdded,     ///< The reply to `addRoom`.
        ended,         ///< The child has been reaped; its memory is free.
        brokenFormat,  ///< The sandbox does not let the helper decode the sample named `text`.
    };

    Kind kind = Kind::ready;
    std::uint32_t child = 0;
    std::int32_t waitStatus = 0;        ///< Of a child that ended; see wait(2).
    std::uint64_t cpuMicroseconds = 0;  ///< Processor time of a child that ended.
    std::array<char, 32> text{};
};

inline constexpr std::size_t noticeDescriptors = 2;

/// The exchange file has the pixels of the answer first, the encoded image behind them.
inline constexpr std::size_t maximumAnswerBytes = std::size_t{1} << 20U;
inline constexpr std::size_t encodedOffset = maximumAnswerBytes;
/// The length of the file. It is extended as long as a longer image is under way.
inline constexpr std::size_t exchangeBytes = encodedOffset + (std::size_t{1} << 20U);

/// A bitmap or a file beyond these sizes needs room, which one child at a time may have.
inline constexpr std::size_t maximumSmallPixelBytes = std::size_t{4} << 20U;
inline constexpr std::size_t maximumSmallFileBytes = std::size_t{8} << 20U;

struct DecodeRequest {
    std::uint64_t encodedBytes = 0;
};

struct RoomReply {
    std::uint32_t granted = 0;
};

struct DecodeAnswer {
    enum class Status : std::uint32_t {
        decoded = 1,
        undecodable,
        asksForRoom,  ///< Not the last answer: the child waits for a `RoomReply`.
        lacksRoom,    ///< Not decoded, because room was refused.
        refusedCall,  ///< The sandbox kills the child because of the system call `call`.
    };

    Status status = Status::undecodable;
    std::int32_t width = 0;  ///< Of the image, in pixels; the picture may be smaller.
    std::int32_t height = 0;
    std::uint32_t hasAlpha = 0;
    std::int32_t call = 0;
    EdgeAlphas edges{};

    /// True if the exchange file has a scaled picture, and not all pixels.
    bool isScaled() const { return bitmapBytes() > maximumAnswerBytes; }
    std::size_t bitmapBytes() const {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
               BitmapImageRep::bytesPerPixel;
    }
};

/// Reads a message that a child sent. Absent unless it is one whole answer with every value in
/// range: an attacker who controls the child can send anything.
inline std::optional<DecodeAnswer> parseAnswer(std::span<const std::uint8_t> bytes) {
    using Status = DecodeAnswer::Status;
    DecodeAnswer answer;
    if (bytes.size() != sizeof answer) {
        return std::nullopt;
    }
    std::memcpy(&answer, bytes.data(), sizeof answer);
    const auto isSide = [](std::int32_t side) { return side >= 1 && side <= maximumSide; };
    switch (answer.status) {
        case Status::decoded:
            if (!isSide(answer.width) || !isSide(answer.height) || answer.hasAlpha > 1 ||
                std::int64_t{answer.width} * answer.height > maximumPixels) {
                return std::nullopt;
            }
            return answer;
        case Status::undecodable:
        case Status::asksForRoom:
        case Status::lacksRoom:
        case Status::refusedCall:
            return answer;
    }
    return std::nullopt;
}

}  // namespace glintmark::decoder
