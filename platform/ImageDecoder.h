#pragma once

#include <memory>
#include <string>

namespace glintmark {
class Image;
}  // namespace glintmark

namespace glintmark::platform {

/// Turns image files into images. May be called from any thread; callers wait for the result.
class ImageDecoder {
public:
    virtual ~ImageDecoder() = default;

    /// Null when `data` is no image of a known format, is broken, or goes beyond the limits on
    /// size, time or memory.
    virtual std::shared_ptr<const Image> decode(std::string data) = 0;
};

}  // namespace glintmark::platform
