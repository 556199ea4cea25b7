#include "tests/doubles/InProcessImageDecoder.h"

#include <cstdint>
#include <span>

#include "base/graphics/Image.h"
#include "base/graphics/ImageScaling.h"
#include "decoder/DecodeImage.h"
#include "decoder/DecoderProtocol.h"
#include "decoder/HeapPixels.h"

namespace glintmark::doubles {

std::shared_ptr<const Image> InProcessImageDecoder::decode(const std::string& data) {
    auto whole = decodeWhole(data);
    if (!whole || whole->bitmap()->pixels().size() <= decoder::maximumAnswerBytes) {
        return whole;
    }
    const BitmapImageRep& bitmap = *whole->bitmap();
    return std::make_shared<const Image>(
        whole->size(), scaled(bitmap, Image::pictureEdge, Image::pictureEdge), edgeAlphas(bitmap));
}

std::shared_ptr<const Image> InProcessImageDecoder::decodeWhole(const std::string& data) {
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
