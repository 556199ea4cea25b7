#include "linux/images/ChildConnection.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/graphics/Image.h"
#include "decoder/DescriptorMessage.h"

namespace glintmark::platform {

namespace {

using decoder::DecodeAnswer;

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
                                         bool hasAlpha) {
    const std::size_t size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                             BitmapImageRep::bytesPerPixel;
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (memory == MAP_FAILED) {
        return std::nullopt;
    }
    std::shared_ptr<const void> owner(memory, [size](void* start) { munmap(start, size); });
    if (pread(file.get(), memory, size, 0) != static_cast<ssize_t>(size)) {
        return std::nullopt;
    }
    return BitmapImageRep(width, height, hasAlpha, std::move(owner),
                          {static_cast<const std::uint8_t*>(memory), size});
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

std::shared_ptr<const Image> receiveImage(const DecoderChild& child, const DecodeAnswer& answer) {
    if (child.task && child.task->data.size() > decoder::exchangeBytes - decoder::encodedOffset &&
        ftruncate(child.exchange.get(), decoder::exchangeBytes) != 0) {
        return nullptr;
    }
    if (answer.status != DecodeAnswer::Status::decoded) {
        return nullptr;
    }
    const bool isScaled = answer.isScaled();
    auto bitmap = copyPixels(child.exchange, isScaled ? Image::pictureEdge : answer.width,
                             isScaled ? Image::pictureEdge : answer.height, answer.hasAlpha == 1);
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
