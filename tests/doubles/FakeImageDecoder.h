#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/ImageDecoder.h"

namespace glintmark::doubles {

/// Decodes images that are written as text. "image 57x60 opaque" has an opaque bitmap without an
/// alpha channel, "image 57x60 transparent" a transparent one with an alpha channel.
/// "image 63.5x10" has only a size. Any other text is not an image.
class FakeImageDecoder final : public platform::ImageDecoder {
public:
    std::shared_ptr<platform::ImageBatch> makeBatch() override {
        return std::make_shared<platform::ImageBatch>();
    }
    void decode(std::string data, const std::shared_ptr<platform::ImageBatch>& batch,
                Completion completion) override;

    int decodes() const { return decodes_; }

private:
    static std::shared_ptr<const Image> imageOf(const std::string& data);

    std::atomic<int> decodes_ = 0;
};

}  // namespace glintmark::doubles
