#pragma once

#include <functional>
#include <memory>
#include <string>

namespace glintmark {
class Image;
}  // namespace glintmark

namespace glintmark::platform {

/// The images of one link, which share one budget of time and memory. Only the decoder that made it
/// can read it.
class ImageBatch {
public:
    virtual ~ImageBatch() = default;
};

/// Turns image files into images. May be called from any thread.
class ImageDecoder {
public:
    /// Receives null when the data is not an image of a known format, is broken, or exceeds the
    /// limits on size, time or memory.
    using Completion = std::function<void(std::shared_ptr<const Image>)>;

    virtual ~ImageDecoder() = default;

    /// A new batch for the images of one link. Never null.
    virtual std::shared_ptr<ImageBatch> makeBatch() = 0;

    /// Decodes `data`, an image of `batch`, which must not be null. `completion` is called exactly
    /// once, on any thread, possibly before this returns. It must return soon: other work waits.
    virtual void decode(std::string data, const std::shared_ptr<ImageBatch>& batch,
                        Completion completion) = 0;
};

}  // namespace glintmark::platform
