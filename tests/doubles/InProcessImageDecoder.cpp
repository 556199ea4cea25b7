#include "tests/doubles/InProcessImageDecoder.h"

#include <cstdint>
#include <span>

#include "base/graphics/Image.h"
#include "decoder/DecodeImage.h"
#include "decoder/HeapPixels.h"

namespace glintmark::doubles {

std::shared_ptr<const Image> InProcessImageDecoder::decode(const std::string& data) {
    const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(data.data()),
                                              data.size());
    decoder::HeapPixels pixels;
    const auto decoded = decoder::decodeImage(bytes, pixels);
    if (!decoded) {
        return nullptr;
    }
    return std::make_shared<const Image>(
        BitmapImageRep(decoded->width, decoded->height, decoded->hasAlpha, pixels.take()));
}

}  // namespace glintmark::doubles
