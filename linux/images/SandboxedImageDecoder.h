#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "platform/ImageDecoder.h"

namespace glintmark::platform {

class DecoderHelper;

/// Decodes images in a separate, sandboxed process. This process never parses an encoded image.
///
/// An image with up to 4 MiB of pixels keeps its bitmap. A larger one keeps its encoded bytes and
/// is decoded again whenever its pixels are needed. Images may outlive the decoder. Any thread;
/// calls block until the result is there. The decoder has no thread and no event source, and its
/// process ends after 30 s without a request.
class SandboxedImageDecoder : public ImageDecoder {
public:
    /// `helperPath` names `glintmark-image-decoder`. The helper kills a child that does not answer
    /// within 5 s. `answerTimeout` applies if the helper fails too.
    explicit SandboxedImageDecoder(
        std::string helperPath, std::chrono::milliseconds answerTimeout = std::chrono::seconds(7));
    ~SandboxedImageDecoder() override;

    std::shared_ptr<ImageBatch> makeBatch() override { return std::make_shared<ImageBatch>(); }
    void decode(std::string data, const std::shared_ptr<ImageBatch>& batch,
                Completion completion) override;

    std::shared_ptr<const Image> decode(std::string data);

private:
    class Client;

    std::shared_ptr<Client> client_;
};

}  // namespace glintmark::platform
