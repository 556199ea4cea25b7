#pragma once

#include <memory>
#include <string>

#include "linux/images/DecodingLoop.h"
#include "platform/ImageDecoder.h"

namespace glintmark {
class DispatchQueue;
}  // namespace glintmark

namespace glintmark::platform {

/// Decodes images in a separate, sandboxed process. This process never parses an encoded image.
///
/// An image with up to 1 MiB of pixels keeps its bitmap. A larger one keeps a scaled picture. The
/// images of a batch are decoded one after another by one child of that process. It has 3 s of
/// processor time for them; those that are left then fail. Batches take turns, and images that need
/// little memory go before others.
///
/// A thread of its own talks with the process. Both start with the first image and end when there
/// has been none for the idle timeout.
class SandboxedImageDecoder final : public ImageDecoder {
public:
    /// `helperPath` names `glintmark-image-decoder`. Completions run on `completionQueue`, which
    /// must outlive the decoder.
    SandboxedImageDecoder(std::string helperPath, DispatchQueue& completionQueue,
                          DecodingOptions options = {});

    /// Drops the images that are not decoded, without completing them, and waits for running
    /// completions. No completion starts afterwards. Must not be called from a completion.
    ~SandboxedImageDecoder() override;

    SandboxedImageDecoder(const SandboxedImageDecoder&) = delete;
    SandboxedImageDecoder& operator=(const SandboxedImageDecoder&) = delete;

    std::shared_ptr<ImageBatch> makeBatch() override;
    void decode(std::string data, const std::shared_ptr<ImageBatch>& batch,
                Completion completion) override;

private:
    class Batch;
    class Worker;

    std::shared_ptr<Worker> worker_;
};

}  // namespace glintmark::platform
