#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "base/graphics/BitmapImageRep.h"
#include "linux/workspace/IconStore.h"
#include "linux/workspace/ThumbnailCache.h"

namespace glintmark::platform {

/// An icon as all files that get it need it.
struct PreparedIcon {
    IconPictures pictures;
    std::optional<std::string> name;  ///< In the store; absent when it could not be stored.
};

/// Encodes `bitmap` and stores the result.
PreparedIcon preparedIcon(const BitmapImageRep& bitmap, IconStore& store);

/// Icons prepared ahead of their use, each for one use. Any thread.
class PreparedIcons {
public:
    void add(const BitmapImageRep& bitmap, PreparedIcon icon);

    /// What was added for these very pixels in memory; absent when nothing was.
    std::optional<PreparedIcon> take(const BitmapImageRep& bitmap);

private:
    struct Entry {
        BitmapImageRep bitmap;  ///< So that no other takes its place in memory.
        PreparedIcon icon;
    };

    std::mutex mutex_;
    std::unordered_map<const std::uint8_t*, Entry> entries_;  ///< By the first pixel.
};

}  // namespace glintmark::platform
