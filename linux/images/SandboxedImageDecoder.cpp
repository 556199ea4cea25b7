#include "linux/images/SandboxedImageDecoder.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "base/graphics/Image.h"
#include "decoder/DecoderProtocol.h"
#include "linux/images/DecodeSlots.h"
#include "linux/images/DecoderHelper.h"

namespace glintmark::platform {

namespace {

using decoder::DecodeAnswer;
using decoder::DecodeSlot;
using Clock = std::chrono::steady_clock;

FileDescriptor memoryFile() {
    return FileDescriptor(memfd_create("image", MFD_CLOEXEC | MFD_ALLOW_SEALING));
}

/// Makes length and contents final. Fails while any process has the file mapped for writing.
bool seal(const FileDescriptor& file) {
    constexpr int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
    return fcntl(file.get(), F_ADD_SEALS, seals) == 0;
}

FileDescriptor sealedFileOf(std::string_view bytes) {
    FileDescriptor file = memoryFile();
    while (file && !bytes.empty()) {
        const ssize_t written = write(file.get(), bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return {};
        }
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    return file && seal(file) ? std::move(file) : FileDescriptor();
}

/// A copy of the pixels. Sealing a file that has just been written takes longer than copying a
/// small one, because the kernel checks that no processor still writes to it. Absent unless the
/// file has exactly the length that `answer` requires.
std::optional<BitmapImageRep> copyPixels(const FileDescriptor& file, const DecodeAnswer& answer) {
    const std::size_t size = answer.pixelBytes();
    // One byte more, to notice a file that is too long.
    void* memory = mmap(nullptr, size + 1, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (memory == MAP_FAILED) {
        return std::nullopt;
    }
    std::shared_ptr<const void> owner(memory, [size](void* start) { munmap(start, size + 1); });
    const ssize_t length = pread(file.get(), memory, size + 1, 0);
    if (length != static_cast<ssize_t>(size)) {
        return std::nullopt;
    }
    return BitmapImageRep(answer.width, answer.height, answer.hasAlpha != 0, std::move(owner),
                          {static_cast<const std::uint8_t*>(memory), size});
}

/// The pixels mapped from the file, without a copy. The result keeps the mapping and `hold`. Absent
/// unless the file has exactly the length that `answer` requires.
std::optional<BitmapImageRep> mapPixels(const FileDescriptor& file, const DecodeAnswer& answer,
                                        DecodeSlots::Hold hold) {
    struct stat status {};
    const std::size_t size = answer.pixelBytes();
    if (!seal(file) || fstat(file.get(), &status) != 0) {
        return std::nullopt;
    }
    if (status.st_size != static_cast<off_t>(size)) {
        return std::nullopt;
    }
    void* memory = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file.get(), 0);
    if (memory == MAP_FAILED) {
        return std::nullopt;
    }
    std::shared_ptr<const void> owner(
        memory, [size, hold = std::move(hold)](void* start) { munmap(start, size); });
    return BitmapImageRep(answer.width, answer.height, answer.hasAlpha != 0, std::move(owner),
                          {static_cast<const std::uint8_t*>(memory), size});
}

/// The bytes from the pipe of one request.
struct Received {
    // One byte more, to notice an answer that is too long.
    std::array<std::uint8_t, sizeof decoder::accepted + sizeof(DecodeAnswer) + 1> bytes{};
    std::size_t length = 0;
    bool inTime = true;

    bool wasAccepted() const { return length > 0 && bytes[0] == decoder::accepted; }
    std::span<const std::uint8_t> answer() const {
        return std::span(bytes).first(length).subspan(sizeof decoder::accepted);
    }
};

/// Waits for the end of the pipe. The child closes it after unmapping the pixels and answering, or
/// by dying. Waking up for each write would take longer. A child that writes more than the pipe's
/// buffer blocks until the helper kills it. False after `deadline`.
bool awaitEnd(const FileDescriptor& pipe, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd watched{pipe.get(), 0, 0};
        const int ready =
            poll(&watched, 1, static_cast<int>(std::max(left.count(), decltype(left)::rep{0})));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        return ready > 0;
    }
}

Received receive(const FileDescriptor& pipe, Clock::time_point deadline) {
    Received received;
    received.inTime = awaitEnd(pipe, deadline);
    while (received.inTime && received.length < received.bytes.size()) {
        const ssize_t length = read(pipe.get(), &received.bytes[received.length],
                                    received.bytes.size() - received.length);
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0) {
            break;
        }
        received.length += static_cast<std::size_t>(length);
    }
    return received;
}

}  // namespace

/// The state that the decoder shares with its large images.
class SandboxedImageDecoder::Client : public std::enable_shared_from_this<Client> {
public:
    Client(std::string helperPath, std::chrono::milliseconds answerTimeout)
        : helper_(std::move(helperPath)), answerTimeout_(answerTimeout) {}

    std::shared_ptr<const Image> decode(std::string data) {
        const FileDescriptor pixels = memoryFile();
        const auto answer = decodeSmall(data, pixels);
        if (!answer) {
            return nullptr;
        }
        if (answer->status == DecodeAnswer::Status::needsLargeSlot) {
            return largeImage(std::make_shared<const std::string>(std::move(data)));
        }
        auto bitmap = copyPixels(pixels, *answer);
        return bitmap ? std::make_shared<const Image>(std::move(*bitmap)) : nullptr;
    }

private:
    std::optional<DecodeAnswer> decodeSmall(std::string_view data, const FileDescriptor& pixels) {
        const DecodeSlots::Hold turn = slots_->takeSmall();
        return ask(data, pixels, DecodeSlot::small);
    }

    std::shared_ptr<const Image> largeImage(const std::shared_ptr<const std::string>& data) {
        const auto bitmap = decodeLarge(*data);
        if (!bitmap) {
            return nullptr;
        }
        const Size size{static_cast<double>(bitmap->pixelsWide()),
                        static_cast<double>(bitmap->pixelsHigh())};
        return std::make_shared<const Image>(
            size, [self = shared_from_this(), data] { return self->decodeLarge(*data); });
    }

    std::optional<BitmapImageRep> decodeLarge(std::string_view data) {
        DecodeSlots::LargeHold turn = slots_->takeLarge();
        const FileDescriptor pixels = memoryFile();
        const auto answer = ask(data, pixels, DecodeSlot::large);
        if (!answer) {
            return std::nullopt;
        }
        return mapPixels(pixels, *answer, std::move(turn.bitmap));
    }

    /// Absent if the image does not decode.
    std::optional<DecodeAnswer> ask(std::string_view data, const FileDescriptor& pixels,
                                    DecodeSlot slot) {
        const FileDescriptor encoded = sealedFileOf(data);
        if (!encoded || !pixels) {
            return std::nullopt;
        }
        auto received = askOnce(encoded, pixels, slot);
        // The helper ended before it received the request. Send it to a new one.
        if (received && received->inTime && !received->wasAccepted()) {
            received = askOnce(encoded, pixels, slot);
        }
        if (!received || !received->inTime || !received->wasAccepted()) {
            return std::nullopt;
        }
        const auto answer = decoder::parseAnswer(received->answer(), slot);
        if (!answer || answer->status == DecodeAnswer::Status::undecodable) {
            return std::nullopt;
        }
        return answer;
    }

    /// Absent if there is no helper.
    std::optional<Received> askOnce(const FileDescriptor& encoded, const FileDescriptor& pixels,
                                    DecodeSlot slot) {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            return std::nullopt;
        }
        const FileDescriptor ours(ends[0]);
        FileDescriptor theirs(ends[1]);
        const auto connection = helper_.send({slot, encoded.get(), pixels.get(), theirs.get()});
        if (!connection) {
            return std::nullopt;
        }
        theirs = FileDescriptor();
        const Received received = receive(ours, Clock::now() + answerTimeout_);
        if (received.inTime && received.wasAccepted()) {
            helper_.worked();
        } else {
            helper_.lost(connection);
        }
        return received;
    }

    const std::shared_ptr<DecodeSlots> slots_ = std::make_shared<DecodeSlots>();
    DecoderHelper helper_;
    const std::chrono::milliseconds answerTimeout_;
};

SandboxedImageDecoder::SandboxedImageDecoder(std::string helperPath,
                                             std::chrono::milliseconds answerTimeout)
    : client_(std::make_shared<Client>(std::move(helperPath), answerTimeout)) {}

SandboxedImageDecoder::~SandboxedImageDecoder() = default;

void SandboxedImageDecoder::decode(std::string data, const std::shared_ptr<ImageBatch>&,
                                   Completion completion) {
    completion(decode(std::move(data)));
}

std::shared_ptr<const Image> SandboxedImageDecoder::decode(std::string data) {
    if (data.empty()) {
        return nullptr;
    }
    return client_->decode(std::move(data));
}

}  // namespace glintmark::platform
