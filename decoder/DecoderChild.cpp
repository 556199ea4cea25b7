#include "decoder/DecoderChild.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "base/graphics/Image.h"
#include "base/graphics/ImageScaling.h"
#include "decoder/Samples.h"
#include "decoder/WarmUp.h"

namespace glintmark::decoder {

namespace {

using Status = DecodeAnswer::Status;

// Memory that a child may map in addition to what it has mapped before its first image: for the
// encoded bytes, the pixels and the library's working memory.
constexpr std::size_t smallMemory = std::size_t{40} << 20U;
constexpr std::size_t largeMemory = std::size_t{224} << 20U;

/// Memory that is unmapped when this object is destroyed.
class Mapping {
public:
    Mapping() = default;
    Mapping(std::size_t size, int protection, int flags, int file, off_t offset) {
        void* memory = mmap(nullptr, size, protection, flags, file, offset);
        if (memory != MAP_FAILED) {
            bytes_ = {static_cast<std::uint8_t*>(memory), size};
        }
    }
    Mapping(Mapping&& other) noexcept : bytes_(std::exchange(other.bytes_, {})) {}
    Mapping& operator=(Mapping&& other) noexcept {
        std::swap(bytes_, other.bytes_);
        return *this;
    }
    ~Mapping() {
        if (!bytes_.empty()) {
            munmap(bytes_.data(), bytes_.size());
        }
    }

    std::span<std::uint8_t> bytes() const { return bytes_; }

private:
    std::span<std::uint8_t> bytes_;
};

/// Asks the program for the room of a large image, at most once for each image.
class Room {
public:
    explicit Room(int channel) : channel_(channel) {}

    bool isGranted() {
        if (!asked_) {
            asked_ = true;
            granted_ = ask();
        }
        return granted_;
    }
    bool wasRefused() const { return asked_ && !granted_; }

private:
    bool ask() const {
        const DecodeAnswer question{.status = Status::asksForRoom};
        RoomReply reply;
        return write(channel_, &question, sizeof question) == sizeof question &&
               read(channel_, &reply, sizeof reply) == sizeof reply && reply.granted == 1;
    }

    int channel_;
    bool asked_ = false;
    bool granted_ = false;
};

/// Puts the pixels where the program reads them, if they fit there, else into memory of their own.
class ChildPixels : public PixelStore {
public:
    ChildPixels(std::span<std::uint8_t> answer, Room& room) : answer_(answer), room_(room) {}

    std::span<const std::uint8_t> last() const { return last_; }

private:
    std::span<std::uint8_t> provide(std::size_t size) override {
        own_ = {};
        last_ = {};
        // Once room was refused, a smaller image of the same file must not take its place.
        if (room_.wasRefused() || (size > maximumSmallPixelBytes && !room_.isGranted())) {
            return {};
        }
        if (size <= answer_.size()) {
            last_ = answer_.first(size);
            std::ranges::fill(last_, std::uint8_t{0});
        } else {
            own_ = Mapping(size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            last_ = own_.bytes();
        }
        return last_;
    }

    std::span<std::uint8_t> answer_;
    Room& room_;
    Mapping own_;
    std::span<std::uint8_t> last_;
};

/// The encoded bytes: in the part of the exchange file that is always mapped, or in `longer`.
std::span<const std::uint8_t> encodedImage(std::size_t size, std::span<std::uint8_t> memory,
                                           int exchange, Mapping& longer) {
    const auto mapped = memory.subspan(encodedOffset);
    if (size <= mapped.size()) {
        return mapped.first(size);
    }
    longer = Mapping(size, PROT_READ, MAP_SHARED, exchange, encodedOffset);
    return longer.bytes();
}

DecodeAnswer answerFor(const DecodedImage& image, std::span<const std::uint8_t> pixels,
                       std::span<std::uint8_t> answerPixels) {
    const BitmapImageRep bitmap(image.width, image.height, image.hasAlpha, nullptr, pixels);
    const DecodeAnswer answer{Status::decoded,          image.width, image.height,
                              image.hasAlpha ? 1U : 0U, 0,           edgeAlphas(bitmap)};
    if (answer.isScaled()) {
        const BitmapImageRep picture = scaled(bitmap, Image::pictureEdge, Image::pictureEdge);
        std::ranges::copy(picture.pixels(), answerPixels.begin());
    }
    return answer;
}

// The descriptors have higher numbers than these, so dup2 overwrites none of them.
bool keepOnly(const FileDescriptor& channel, const FileDescriptor& exchange) {
    if (dup2(channel.get(), childChannel) < 0 || dup2(exchange.get(), childExchange) < 0) {
        return false;
    }
#ifdef GLINTMARK_SANITIZED
    constexpr unsigned firstToClose = STDERR_FILENO + 1;  // the sanitizers report there
#else
    constexpr unsigned firstToClose = STDERR_FILENO;
#endif
    return close_range(firstToClose, ~0U, 0) == 0;
}

/// Zero if it is unknown.
std::size_t mappedBytes() {
    const FileDescriptor statistics(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
    std::array<char, 64> text{};
    if (!statistics || read(statistics.get(), text.data(), text.size() - 1) <= 0) {
        return 0;
    }
    unsigned long pages = 0;  // proc(5): the first number
    for (std::size_t i = 0; text[i] >= '0' && text[i] <= '9'; ++i) {
        pages = pages * 10 + static_cast<unsigned long>(text[i] - '0');
    }
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

bool enterSandbox(const Sandbox& sandbox, const ChildSettings& settings) {
    const std::size_t mapped = mappedBytes();
    return mapped > 0 &&
           sandbox.enter({mapped + smallMemory, mapped + largeMemory, settings.cpuSeconds,
                          settings.cpuSeconds + cpuGraceSeconds});
}

}  // namespace

bool decodeAndAnswer(std::size_t encodedBytes, int channel, int exchange,
                     std::span<std::uint8_t> memory, const ChildSettings& settings) {
    DecodeAnswer answer;
    {
        Room room(channel);
        Mapping longer;
        ChildPixels store(memory.first(maximumAnswerBytes), room);
        if (encodedBytes <= maximumSmallFileBytes || room.isGranted()) {
            const auto encoded = encodedImage(encodedBytes, memory, exchange, longer);
            FormatDecoder* const format = formatOf(encoded);
            const bool isBroken =
                format != nullptr &&
                std::ranges::find(settings.brokenFormats, format) != settings.brokenFormats.end();
            const auto image = isBroken ? std::nullopt : settings.decode(encoded, store);
            if (image) {
                answer = answerFor(*image, store.last(), memory.first(maximumAnswerBytes));
            }
        }
        if (room.wasRefused()) {
            answer.status = Status::lacksRoom;
        }
    }
    return write(channel, &answer, sizeof answer) == sizeof answer;
}

void runDecoderChild(const FileDescriptor& channel, const FileDescriptor& exchange,
                     const Sandbox& sandbox, const ChildSettings& settings) {
    const Mapping memory(exchangeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, exchange.get(), 0);
    if (memory.bytes().empty() || !keepOnly(channel, exchange) ||
        prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0) {
        _exit(1);
    }
    // After a fork, a child shares the helper's pages. Some 35 pages that a decode writes to are
    // copied now, and not while the program waits.
    warmUpForPNG();
    if (!enterSandbox(sandbox, settings)) {
        _exit(1);
    }
    DecodeRequest request;
    while (read(childChannel, &request, sizeof request) == sizeof request) {
        if (!decodeAndAnswer(request.encodedBytes, childChannel, childExchange, memory.bytes(),
                             settings)) {
            break;
        }
    }
    _exit(0);
}

void runSelfTest(const FileDescriptor& results, std::size_t first, const Sandbox& sandbox,
                 const ChildSettings& settings) {
    const FileDescriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!keepOnly(results, nothing) || !enterSandbox(sandbox, settings)) {
        _exit(1);
    }
    for (const Sample& sample : samples().subspan(first)) {
        const std::uint8_t works = decodes(sample, settings.decode) ? 1 : 0;
        if (write(childChannel, &works, sizeof works) != sizeof works) {
            break;
        }
    }
    _exit(0);
}

}  // namespace glintmark::decoder
