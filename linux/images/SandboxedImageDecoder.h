#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "platform/ImageDecoder.h"

namespace glintmark::platform {

class DecoderHelper;

/// Decodes images in a sandboxed process of its own; no byte of an image is looked at in this one.
///
/// Bitmaps of up to 4 MiB are kept; of a larger image the encoded bytes are, and each request for
/// its pixels decodes it again. Images may outlive the decoder. Any thread; a caller waits for its
/// turn and its result. No thread and no event source of its own, and the process goes away when
/// it was idle for 30 s.
class SandboxedImageDecoder : public ImageDecoder {
public:
    /// `helperPath` is that of `glintmark-image-decoder`. A child that does not answer is killed by
    /// its parent after 5 s; `answerLimit` is how long to wait in case the parent fails too.
    explicit SandboxedImageDecoder(std::string helperPath,
                                   std::chrono::milliseconds answerLimit = std::chrono::seconds(7));
    ~SandboxedImageDecoder() override;

    std::shared_ptr<const Image> decode(std::string data) override;

private:
    class Client;

    std::shared_ptr<Client> client_;
};

}  // namespace glintmark::platform
