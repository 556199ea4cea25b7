#pragma once

#include <memory>
#include <string>

namespace glintmark {
class Image;
}  // namespace glintmark

namespace glintmark::platform {

/// Turns image files into images. May be called from any thread; calls block until the image is
/// decoded.
class ImageDecoder {
public:
    virtual ~ImageDecoder() = default;

    /// Null when `data` is not an image of a known format, is broken, or exceeds the limits on
    /// size, time or memory.
    virtual std::shared_ptr<const Image> decode(std::string data) = 0;
};

}  // namespace glintmark::platform
