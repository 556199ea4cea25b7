#pragma once

#include <memory>
#include <string>

#include "linux/images/DecodingLoop.h"
#include "platform/ImageDecoder.h"

namespace glintmark::platform {

class SourceLoop;

/// Decodes images in a separate, sandboxed process. This process never parses an encoded image.
///
/// An image with up to 1 MiB of pixels keeps its bitmap. A larger one keeps a scaled picture. The
/// images of a batch are decoded one after another by one child of that process. It has 3 s of
/// processor time for them; those that are left then fail. Batches take turns, and images that need
/// little memory go before others.
///
/// The process starts with the first image and ends when there has been none for the idle timeout.
/// The decoder talks with it on a shared thread: that of the HTTP client, where images come from.
class SandboxedImageDecoder final : public ImageDecoder {
public:
    /// `helperPath` names `glintmark-image-decoder`. All work and the completions run on `thread`,
    /// which must outlive the decoder.
    SandboxedImageDecoder(std::string helperPath, SourceLoop& thread, DecodingOptions options = {});

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
