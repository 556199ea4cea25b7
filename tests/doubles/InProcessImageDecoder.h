#pragma once

#include <memory>
#include <string>

#include "platform/ImageDecoder.h"

namespace glintmark::doubles {

/// Decodes real images where it is called, without a sandbox: for tests and benchmarks, whose
/// images are known. Any thread. Keeps the bitmap of an image whatever its size.
class InProcessImageDecoder : public platform::ImageDecoder {
public:
    std::shared_ptr<const Image> decode(std::string data) override;
};

}  // namespace glintmark::doubles
