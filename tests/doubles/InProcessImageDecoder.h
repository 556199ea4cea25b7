#pragma once

#include <memory>
#include <string>

#include "platform/ImageDecoder.h"

namespace glintmark::doubles {

/// Decodes real images in the calling process, without a sandbox. For tests and benchmarks, whose
/// images are known. Any thread. Keeps the bitmaps of large images, too.
class InProcessImageDecoder : public platform::ImageDecoder {
public:
    std::shared_ptr<const Image> decode(std::string data) override;
};

}  // namespace glintmark::doubles
