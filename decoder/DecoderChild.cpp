#include "decoder/DecoderChild.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace glintmark::decoder {

namespace {

// Memory that a decode may map in addition to the helper's own: the encoded bytes, the pixels and
// the library's working memory. The large slot determines the maximum for the whole program.
constexpr std::size_t smallSlotMemory = std::size_t{72} << 20U;
constexpr std::size_t largeSlotMemory = std::size_t{224} << 20U;
constexpr std::size_t largeSlotPixelBytes = maximumPixels * BitmapImageRep::bytesPerPixel;

constexpr unsigned cpuSeconds = 5;

std::size_t maximumPixelBytes(DecodeSlot slot) {
    return slot == DecodeSlot::small ? smallSlotPixelBytes : largeSlotPixelBytes;
}

/// Keeps the pixels in a memory file, which has the length of the last canvas.
class MemoryFilePixels : public PixelStore {
public:
    MemoryFilePixels(int file, std::size_t maximumBytes)
        : file_(file), maximumBytes_(maximumBytes) {}
    ~MemoryFilePixels() override { release(); }
    MemoryFilePixels(const MemoryFilePixels&) = delete;
    MemoryFilePixels& operator=(const MemoryFilePixels&) = delete;

    /// True if a canvas was requested that is too large for the slot.
    bool overflowed() const { return overflowed_; }

    void release() {
        if (!mapped_.empty()) {
            munmap(mapped_.data(), mapped_.size());
        }
        mapped_ = {};
    }

private:
    std::span<std::uint8_t> provide(std::size_t size) override {
        release();
        overflowed_ = overflowed_ || size > maximumBytes_;
        if (overflowed_) {
            return {};
        }
        // Length 0 first, which discards the pixels of an earlier canvas.
        if (ftruncate(file_, 0) != 0 || ftruncate(file_, static_cast<off_t>(size)) != 0) {
            return {};
        }
        // All pages of a small bitmap will be written. Mapping them at once costs less than one
        // page fault each.
        const int flags = size <= smallSlotPixelBytes ? MAP_SHARED | MAP_POPULATE : MAP_SHARED;
        void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, flags, file_, 0);
        if (memory == MAP_FAILED) {
            return {};
        }
        mapped_ = {static_cast<std::uint8_t*>(memory), size};
        return mapped_;
    }

    int file_;
    std::size_t maximumBytes_;
    std::span<std::uint8_t> mapped_;
    bool overflowed_ = false;
};

std::span<const std::uint8_t> mapEncoded(const FileDescriptor& file) {
    struct stat status {};
    if (fstat(file.get(), &status) != 0 || status.st_size <= 0) {
        return {};
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    void* memory = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.get(), 0);
    if (memory == MAP_FAILED) {
        return {};
    }
    return {static_cast<const std::uint8_t*>(memory), size};
}

// The task's descriptors have higher numbers than these, so dup2 overwrites none of them.
bool keepOnlyTwoDescriptors(const DecodeTask& task) {
    if (dup2(task.answer.get(), childAnswer) < 0 || dup2(task.pixels.get(), childPixels) < 0) {
        return false;
    }
#ifdef GLINTMARK_SANITIZED
    constexpr unsigned firstToClose = STDERR_FILENO + 1;  // the sanitizers report there
#else
    constexpr unsigned firstToClose = STDERR_FILENO;
#endif
    return close_range(firstToClose, ~0U, 0) == 0;
}

}  // namespace

void decodeAndAnswer(std::span<const std::uint8_t> encoded, DecodeSlot slot, int pixels, int answer,
                     DecodeFunction decode) {
    DecodeAnswer outcome;
    {
        MemoryFilePixels store(pixels, maximumPixelBytes(slot));
        const auto image = decode(encoded, store);
        if (store.overflowed()) {
            outcome.status = DecodeAnswer::Status::needsLargeSlot;
        } else if (image) {
            outcome = {DecodeAnswer::Status::decoded, image->width, image->height,
                       image->hasAlpha ? 1U : 0U};
        }
    }
    // If this fails, the program sees no answer and treats the image as undecodable.
    [[maybe_unused]] const auto written = write(answer, &outcome, sizeof outcome);
}

void runDecoderChild(const DecodeTask& task, const Sandbox& sandbox, std::size_t mappedBefore,
                     DecodeFunction decode) {
    const std::span<const std::uint8_t> encoded = mapEncoded(task.encoded);
    const bool large = task.slot == DecodeSlot::large;
    const SandboxLimits limits{mappedBefore + (large ? largeSlotMemory : smallSlotMemory),
                               maximumPixelBytes(task.slot), cpuSeconds};
    if (!encoded.empty() && keepOnlyTwoDescriptors(task) && sandbox.enter(limits)) {
        decodeAndAnswer(encoded, task.slot, childPixels, childAnswer, decode);
        close(childAnswer);  // the program continues without waiting until all memory is freed
    }
    _exit(0);
}

}  // namespace glintmark::decoder
