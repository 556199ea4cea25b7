#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "base/system/FileDescriptor.h"
#include "decoder/DecoderProtocol.h"
#include "linux/images/DecodeQueue.h"

namespace glintmark {
class Image;
}  // namespace glintmark

namespace glintmark::platform {

/// The program's end of one child of the image decoder. Everything that comes from the child may
/// come from an attacker.
struct DecoderChild {
    using Clock = std::chrono::steady_clock;

    std::uint32_t id = 0;
    FileDescriptor channel;              ///< Empty once the child has closed its end.
    FileDescriptor exchange;             ///< Empty once the child is ending.
    std::shared_ptr<DecodeLink> link{};  ///< Null for the spare child, which has read nothing yet.
    std::optional<DecodeTask> task{};    ///< The image under way.
    Clock::time_point deadline = Clock::time_point::max();  ///< Of the image, or of its end.
    Clock::time_point lastUse{};
    bool isReadable = false;  ///< The channel.
    bool hasAsked = false;    ///< For room, for this image.
    bool isEnding = false;    ///< The helper was told to kill it.
    std::optional<std::int32_t> refusedCall{};

    bool isIdle() const { return link != nullptr && !task && !isEnding && channel; }
};

class PixelMemory;

/// Hands an encoded image to the child. False if the system lacks memory for it.
bool sendImage(const DecoderChild& child, std::string_view data);

void sendRoomReply(const DecoderChild& child, bool granted);

/// The image that the child has answered with. Null if it is incomplete. Shortens the exchange
/// file after a long image.
std::shared_ptr<const Image> receiveImage(const DecoderChild& child,
                                          const decoder::DecodeAnswer& answer, PixelMemory& pixels);

}  // namespace glintmark::platform
