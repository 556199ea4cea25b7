#pragma once

#include <memory>
#include <string>

#include "platform/ImageDecoder.h"

namespace glintmark::doubles {

/// Decodes real images in the calling process, without a sandbox. For tests and benchmarks, whose
/// images are known. Any thread.
class InProcessImageDecoder : public platform::ImageDecoder {
public:
    std::shared_ptr<platform::ImageBatch> makeBatch() override {
        return std::make_shared<platform::ImageBatch>();
    }
    void decode(std::string data, const std::shared_ptr<platform::ImageBatch>&,
                Completion completion) override {
        completion(decode(data));
    }

    /// The same image as in the program: a large one keeps a scaled picture.
    std::shared_ptr<const Image> decode(const std::string& data);

    /// The same with all pixels, whatever the size.
    std::shared_ptr<const Image> decodeWhole(const std::string& data);
};

}  // namespace glintmark::doubles
