#include <avif/avif.h>

#include <cstring>
#include <memory>
#include <vector>

#include "decoder/ColourProfile.h"
#include "decoder/FormatDecoders.h"
#include "decoder/ImageLimits.h"
#include "decoder/Orientation.h"
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

struct Part {
    std::int64_t left = 0;
    std::int64_t top = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;
};

/// The pixels of one direction that a clean aperture keeps. False if they are no whole pixels
/// inside the picture.
bool cut(std::int64_t whole, std::int64_t sizeN, std::int64_t sizeD, std::int64_t offsetN,
         std::int64_t offsetD, std::int64_t& begin, std::int64_t& size) {
    if (sizeD == 0 || offsetD == 0 || sizeN % sizeD != 0) {
        return false;
    }
    size = sizeN / sizeD;
    // ISO/IEC 14496-12, section 12.1.4: the offset is that of the centre.
    const std::int64_t twice = (whole - size) * offsetD + 2 * offsetN;
    begin = twice / (2 * offsetD);
    return twice % (2 * offsetD) == 0 && begin >= 0 && size >= 1 && begin + size <= whole;
}

/// What the clean aperture keeps. A broken one keeps all.
Part cleanAperture(const avifImage& image) {
    const Part all{0, 0, image.width, image.height};
    const avifCleanApertureBox& box = image.clap;
    Part part;
    const bool cuts =
        (image.transformFlags & AVIF_TRANSFORM_CLAP) != 0 &&
        cut(all.width, box.widthN, box.widthD, static_cast<std::int32_t>(box.horizOffN),
            box.horizOffD, part.left, part.width) &&
        cut(all.height, box.heightN, box.heightD, static_cast<std::int32_t>(box.vertOffN),
            box.vertOffD, part.top, part.height);
    return cuts ? part : all;
}

// ISO/IEC 23008-12, sections 6.5.10 and 6.5.12: the picture is first turned against the clock, then
// mirrored.
Orientation orientationOf(const avifImage& image) {
    static constexpr Orientation turns[] = {
        {}, {true, false, true}, {false, true, true}, {true, true, false}};
    Orientation orientation;
    if ((image.transformFlags & AVIF_TRANSFORM_IROT) != 0) {
        orientation = turns[image.irot.angle % std::size(turns)];
    }
    if ((image.transformFlags & AVIF_TRANSFORM_IMIR) != 0) {
        const auto [leftAndRight] = image.imir;  // its name differs between versions
        bool& exchange = leftAndRight != 0 ? orientation.mirror : orientation.flip;
        exchange = !exchange;
    }
    return orientation;
}

bool convert(const avifImage& image, std::uint8_t* pixels) {
    avifRGBImage rgb;
    avifRGBImageSetDefaults(&rgb, &image);
    rgb.format = AVIF_RGB_FORMAT_RGBA;
    rgb.depth = 8;
    rgb.pixels = pixels;
    rgb.rowBytes = rgb.width * 4;
    return avifImageYUVToRGB(&image, &rgb) == AVIF_RESULT_OK;
}

/// Subsampled colours can be cut only after conversion.
bool convertPart(const avifImage& image, const Part& part, const Canvas& canvas) {
    if (part.width == image.width && part.height == image.height) {
        return convert(image, canvas.pixels().data());
    }
    const std::size_t bytesPerRow = std::size_t{image.width} * 4;
    std::vector<std::uint8_t> all(bytesPerRow * image.height);
    if (!convert(image, all.data())) {
        return false;
    }
    for (int y = 0; y < canvas.height(); ++y) {
        const std::size_t row = static_cast<std::size_t>(part.top + y) * bytesPerRow;
        std::memcpy(canvas.row(y), &all[row + static_cast<std::size_t>(part.left) * 4],
                    canvas.bytesPerRow());
    }
    return true;
}

// Curves for high dynamic range would need tone mapping, and stay as they are.
bool hasUsualCurve(const avifImage& image) {
    switch (image.transferCharacteristics) {
        case AVIF_TRANSFER_CHARACTERISTICS_BT709:
        case AVIF_TRANSFER_CHARACTERISTICS_UNSPECIFIED:
        case AVIF_TRANSFER_CHARACTERISTICS_BT601:
        case AVIF_TRANSFER_CHARACTERISTICS_SRGB:
        case AVIF_TRANSFER_CHARACTERISTICS_BT2020_10BIT:
        case AVIF_TRANSFER_CHARACTERISTICS_BT2020_12BIT:
            return true;
        default:
            return false;
    }
}

void convertColours(const avifImage& image, const Canvas& canvas) {
    if (image.icc.size > 0) {
        convertFromProfile({image.icc.data, image.icc.size}, canvas);
    } else if (image.colorPrimaries == AVIF_COLOR_PRIMARIES_SMPTE432 && hasUsualCurve(image)) {
        convertFromPrimaries(Primaries::displayP3, canvas);
    } else if (image.colorPrimaries == AVIF_COLOR_PRIMARIES_BT2020 && hasUsualCurve(image)) {
        convertFromPrimaries(Primaries::bt2020, canvas);
    }
}

}  // namespace

std::optional<DecodedImage> decodeAVIF(std::span<const std::uint8_t> file, PixelStore& pixels) {
    const Decoder decoder(avifDecoderCreate());
    if (!decoder || !open(*decoder, file)) {
        return std::nullopt;
    }
    const avifImage& image = *decoder->image;
    const std::uint32_t width = image.width;
    const std::uint32_t height = image.height;
    const Part part = cleanAperture(image);
    const auto canvas = pixels.allocate(part.width, part.height);
    if (!canvas || avifDecoderNextImage(decoder.get()) != AVIF_RESULT_OK) {
        return std::nullopt;
    }
    // The container may name another size than the picture has. `image` now has the picture's.
    if (image.width != width || image.height != height || !convertPart(image, part, *canvas)) {
        return std::nullopt;
    }
    convertColours(image, *canvas);
    return upright(*canvas, orientationOf(image), image.alphaPlane != nullptr);
}

}  // namespace glintmark::decoder
