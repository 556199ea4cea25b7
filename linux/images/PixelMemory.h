#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace glintmark::platform {

/// Memory for the pixels of images. What is given back is kept for the next image: to get new pages
/// from the system takes longer than to copy pixels into them. Any thread.
class PixelMemory : public std::enable_shared_from_this<PixelMemory> {
public:
    /// The most that one image takes.
    static constexpr std::size_t blockBytes = std::size_t{1} << 20U;

    PixelMemory() = default;
    ~PixelMemory();
    PixelMemory(const PixelMemory&) = delete;
    PixelMemory& operator=(const PixelMemory&) = delete;

    /// `size` bytes with any content; at most `blockBytes`. Null if the system has no memory. They
    /// are given back with the last reference.
    std::shared_ptr<std::uint8_t> take(std::size_t size);

private:
    struct Block {
        std::uint8_t* start;
        std::size_t used;  ///< Bytes that have pages.
    };

    Block takeBlock();
    void giveBack(Block block);

    std::mutex mutex_;
    std::vector<Block> free_;
};

}  // namespace glintmark::platform
