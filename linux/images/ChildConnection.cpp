#include "linux/images/ChildConnection.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/graphics/Image.h"
#include "decoder/DescriptorMessage.h"
#include "linux/images/PixelMemory.h"

namespace glintmark::platform {

namespace {

using decoder::DecodeAnswer;

static_assert(PixelMemory::blockBytes >= decoder::maximumAnswerBytes);

bool writeAll(const FileDescriptor& file, std::string_view bytes, off_t offset) {
    while (!bytes.empty()) {
        const ssize_t written = pwrite(file.get(), bytes.data(), bytes.size(), offset);
        if (written < 0 && errno != EINTR) {
            return false;
        }
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
            offset += written;
        }
    }
    return true;
}

/// A copy of the pixels at the beginning of `file`: the child could change the file at any time.
std::optional<BitmapImageRep> copyPixels(const FileDescriptor& file, int width, int height,
                                         bool hasAlpha, PixelMemory& pixels) {
    const std::size_t size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                             BitmapImageRep::bytesPerPixel;
    std::shared_ptr<std::uint8_t> memory = pixels.take(size);
    if (!memory || pread(file.get(), memory.get(), size, 0) != static_cast<ssize_t>(size)) {
        return std::nullopt;
    }
    const std::span<const std::uint8_t> bytes(memory.get(), size);
    return BitmapImageRep(width, height, hasAlpha, std::move(memory), bytes);
}

}  // namespace

bool sendImage(const DecoderChild& child, std::string_view data) {
    if (!writeAll(child.exchange, data, decoder::encodedOffset)) {
        return false;
    }
    // If this fails, the child has ended, and a notice of the helper follows.
    decoder::sendMessage(child.channel.get(), decoder::DecodeRequest{data.size()});
    return true;
}

void sendRoomReply(const DecoderChild& child, bool granted) {
    decoder::sendMessage(child.channel.get(), decoder::RoomReply{granted ? 1U : 0U});
}

std::shared_ptr<const Image> receiveImage(const DecoderChild& child, const DecodeAnswer& answer,
                                          PixelMemory& pixels) {
    if (child.task && child.task->data.size() > decoder::exchangeBytes - decoder::encodedOffset &&
        ftruncate(child.exchange.get(), decoder::exchangeBytes) != 0) {
        return nullptr;
    }
    if (answer.status != DecodeAnswer::Status::decoded) {
        return nullptr;
    }
    const bool isScaled = answer.isScaled();
    auto bitmap =
        copyPixels(child.exchange, isScaled ? Image::pictureEdge : answer.width,
                   isScaled ? Image::pictureEdge : answer.height, answer.hasAlpha == 1, pixels);
    if (!bitmap) {
        return nullptr;
    }
    if (!isScaled) {
        return std::make_shared<const Image>(std::move(*bitmap));
    }
    const Size size{static_cast<double>(answer.width), static_cast<double>(answer.height)};
    return std::make_shared<const Image>(size, std::move(*bitmap), answer.edges);
}

}  // namespace glintmark::platform
