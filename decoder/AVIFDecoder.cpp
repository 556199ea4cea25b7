#include <avif/avif.h>

#include <memory>

#include "decoder/FormatDecoders.h"
#include "decoder/ImageLimits.h"
#include "decoder/PixelStore.h"

namespace glintmark::decoder {

namespace {

struct DestroyDecoder {
    void operator()(avifDecoder* decoder) const { avifDecoderDestroy(decoder); }
};
using Decoder = std::unique_ptr<avifDecoder, DestroyDecoder>;

bool open(avifDecoder& decoder, std::span<const std::uint8_t> file) {
    decoder.codecChoice = AVIF_CODEC_CHOICE_DAV1D;
    decoder.maxThreads = 1;
    decoder.ignoreExif = AVIF_TRUE;
    decoder.ignoreXMP = AVIF_TRUE;
    decoder.imageSizeLimit = maximumPixels;
    decoder.imageDimensionLimit = maximumSide;
    decoder.strictFlags = AVIF_STRICT_DISABLED;  // real files lack properties that decode without
    return avifDecoderSetIOMemory(&decoder, file.data(), file.size()) == AVIF_RESULT_OK &&
           avifDecoderParse(&decoder) == AVIF_RESULT_OK;
}

}  // namespace

std::optional<DecodedImage> decodeAVIF(std::span<const std::uint8_t> file, PixelStore& pixels) {
    const Decoder decoder(avifDecoderCreate());
    if (!decoder || !open(*decoder, file)) {
        return std::nullopt;
    }
    const auto canvas = pixels.allocate(decoder->image->width, decoder->image->height);
    if (!canvas || avifDecoderNextImage(decoder.get()) != AVIF_RESULT_OK) {
        return std::nullopt;
    }

    avifRGBImage rgb;
    avifRGBImageSetDefaults(&rgb, decoder->image);
    // The container may name another size than the picture has. `image` now has the picture's.
    const bool fits = rgb.width == static_cast<std::uint32_t>(canvas->width()) &&
                      rgb.height == static_cast<std::uint32_t>(canvas->height());
    rgb.format = AVIF_RGB_FORMAT_RGBA;
    rgb.depth = 8;
    rgb.pixels = canvas->pixels().data();
    rgb.rowBytes = static_cast<std::uint32_t>(canvas->bytesPerRow());
    if (!fits || avifImageYUVToRGB(decoder->image, &rgb) != AVIF_RESULT_OK) {
        return std::nullopt;
    }
    return DecodedImage{canvas->width(), canvas->height(), decoder->image->alphaPlane != nullptr};
}

}  // namespace glintmark::decoder
