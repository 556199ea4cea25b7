#include "decoder/DecoderChild.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace glintmark::decoder {

namespace {

// With all that a decode maps beside what the decoder itself has mapped: the encoded bytes, the
// pixels, the library's working memory. The large slot bounds what the whole program ever takes.
constexpr std::size_t smallSlotMemory = std::size_t{72} << 20U;
constexpr std::size_t largeSlotMemory = std::size_t{224} << 20U;
constexpr std::size_t largeSlotPixels = maximumPixels * BitmapImageRep::bytesPerPixel;

constexpr unsigned cpuSeconds = 5;

std::size_t pixelsOf(DecodeSlot slot) {
    return slot == DecodeSlot::small ? smallSlotPixels : largeSlotPixels;
}

/// Keeps the pixels in a memory file whose length follows the canvas.
class MemoryFilePixels : public PixelStore {
public:
    MemoryFilePixels(int file, std::size_t most) : file_(file), most_(most) {}
    ~MemoryFilePixels() override { release(); }
    MemoryFilePixels(const MemoryFilePixels&) = delete;
    MemoryFilePixels& operator=(const MemoryFilePixels&) = delete;

    /// Whether pixels were asked for that the slot has no room for.
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
        overflowed_ = overflowed_ || size > most_;
        if (overflowed_) {
            return {};
        }
        // Through length 0, so that nothing of an earlier canvas shows.
        if (ftruncate(file_, 0) != 0) {
            return {};
        }
        if (ftruncate(file_, static_cast<off_t>(size)) != 0) {
            return {};
        }
        // All pages of a small bitmap are written soon; one by one they would cost more.
        const int flags = size <= smallSlotPixels ? MAP_SHARED | MAP_POPULATE : MAP_SHARED;
        void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, flags, file_, 0);
        if (memory == MAP_FAILED) {
            return {};
        }
        mapped_ = {static_cast<std::uint8_t*>(memory), size};
        return mapped_;
    }

    int file_;
    std::size_t most_;
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

// The task's descriptors have higher numbers, so that neither overwrites the other.
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
        MemoryFilePixels store(pixels, pixelsOf(slot));
        const auto image = decode(encoded, store);
        if (store.overflowed()) {
            outcome.status = DecodeAnswer::Status::needsLargeSlot;
        } else if (image) {
            outcome = {DecodeAnswer::Status::decoded, image->width, image->height,
                       image->hasAlpha ? 1U : 0U};
        }
    }
    // Nobody is left to tell when this fails: the program takes the missing answer for a failure.
    [[maybe_unused]] const auto written = write(answer, &outcome, sizeof outcome);
}

void runDecoderChild(const DecodeTask& task, const Sandbox& sandbox, std::size_t mappedBefore,
                     DecodeFunction decode) {
    const std::span<const std::uint8_t> encoded = mapEncoded(task.encoded);
    const bool large = task.slot == DecodeSlot::large;
    const SandboxLimits limits{mappedBefore + (large ? largeSlotMemory : smallSlotMemory),
                               pixelsOf(task.slot), cpuSeconds};
    if (!encoded.empty() && keepOnlyTwoDescriptors(task) && sandbox.enter(limits)) {
        decodeAndAnswer(encoded, task.slot, childPixels, childAnswer, decode);
        close(childAnswer);  // the program need not wait until all memory has been given back
    }
    _exit(0);
}

}  // namespace glintmark::decoder
