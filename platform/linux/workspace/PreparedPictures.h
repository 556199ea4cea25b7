#pragma once

#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "platform/BitmapImageRep.h"
#include "platform/linux/workspace/ThumbnailCache.h"

namespace glintmark::platform {

/// Icons encoded ahead of their use, each for one use. Any thread.
class PreparedPictures {
public:
    void add(const BitmapImageRep& bitmap);

    /// What was added for these very pixels in memory; encoded now when nothing was.
    IconPictures take(const BitmapImageRep& bitmap);

private:
    struct Entry {
        BitmapImageRep bitmap;  ///< So that no other takes its place in memory.
        IconPictures pictures;
    };

    std::mutex mutex_;
    std::unordered_map<const std::uint8_t*, Entry> entries_;  ///< By the first pixel.
};

}  // namespace glintmark::platform
