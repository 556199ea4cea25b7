#include "linux/images/PixelMemory.h"

#include <sys/mman.h>

#include <algorithm>

namespace glintmark::platform {

namespace {

// Enough for one link's images at a time. With many links at once, most blocks are given back to
// the system, as they would be anyway.
constexpr std::size_t maximumKept = 4;

}  // namespace

PixelMemory::~PixelMemory() {
    for (const Block& block : free_) {
        munmap(block.start, blockBytes);
    }
}

std::shared_ptr<std::uint8_t> PixelMemory::take(std::size_t size) {
    Block block = takeBlock();
    if (block.start == nullptr) {
        return nullptr;
    }
    if (size > block.used) {
        // All at once: one fault for each page takes longer. Where this fails, faults do it.
        madvise(block.start, size, MADV_POPULATE_WRITE);
        block.used = size;
    }
    return {block.start,
            [block, self = shared_from_this()](std::uint8_t* /*start*/) { self->giveBack(block); }};
}

/// One without a start if the system has no memory.
PixelMemory::Block PixelMemory::takeBlock() {
    {
        const std::lock_guard lock(mutex_);
        if (!free_.empty()) {
            const Block block = free_.back();
            free_.pop_back();
            return block;
        }
    }
    void* start =
        mmap(nullptr, blockBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return {start == MAP_FAILED ? nullptr : static_cast<std::uint8_t*>(start), 0};
}

void PixelMemory::giveBack(Block block) {
    {
        const std::lock_guard lock(mutex_);
        if (free_.size() < maximumKept) {
            free_.push_back(block);
            return;
        }
    }
    munmap(block.start, blockBytes);
}

}  // namespace glintmark::platform
