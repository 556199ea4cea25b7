#pragma once

#include <future>
#include <memory>
#include <string>
#include <utility>

#include "base/graphics/Image.h"
#include "platform/ImageDecoder.h"

namespace glintmark::test {

/// Decodes one image, of a batch of its own by default, and waits for it. The decoder must complete
/// on another thread, or before `decode` returns.
inline std::shared_ptr<const Image> decodeAndWait(
    platform::ImageDecoder& decoder, std::string data,
    const std::shared_ptr<platform::ImageBatch>& batch) {
    const auto decoded = std::make_shared<std::promise<std::shared_ptr<const Image>>>();
    decoder.decode(std::move(data), batch,
                   [decoded](auto image) { decoded->set_value(std::move(image)); });
    return decoded->get_future().get();
}

inline std::shared_ptr<const Image> decodeAndWait(platform::ImageDecoder& decoder,
                                                  std::string data) {
    return decodeAndWait(decoder, std::move(data), decoder.makeBatch());
}

}  // namespace glintmark::test
