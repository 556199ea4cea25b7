#pragma once

#include <memory>
#include <string>

namespace glintmark::platform {

class Image;

/// Turns image files into images. May be called from any thread; callers wait for the result.
class ImageDecoder {
public:
    virtual ~ImageDecoder() = default;

    /// Null when `data` is no image of a known format, is broken, or goes beyond the limits on
    /// size, time or memory.
    virtual std::shared_ptr<const Image> decode(std::string data) = 0;
};

}  // namespace glintmark::platform
