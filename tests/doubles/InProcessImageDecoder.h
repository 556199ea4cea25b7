#pragma once

#include <memory>
#include <string>

#include "platform/ImageDecoder.h"

namespace glintmark::doubles {

/// Decodes real images in the calling process, without a sandbox. For tests and benchmarks, whose
/// images are known. Any thread. Keeps the bitmaps of large images, too.
class InProcessImageDecoder : public platform::ImageDecoder {
public:
    std::shared_ptr<platform::ImageBatch> makeBatch() override {
        return std::make_shared<platform::ImageBatch>();
    }
    void decode(std::string data, const std::shared_ptr<platform::ImageBatch>&,
                Completion completion) override {
        completion(decode(data));
    }

    std::shared_ptr<const Image> decode(const std::string& data);
};

}  // namespace glintmark::doubles
