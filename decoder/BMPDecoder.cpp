#include "decoder/ByteReader.h"
#include "decoder/DIB.h"
#include "decoder/FormatDecoders.h"
#include "decoder/PixelStore.h"

namespace glintmark::decoder {

namespace {

constexpr std::size_t fileHeaderSize = 14;
constexpr std::size_t pixelOffsetField = 10;

}  // namespace

std::optional<DecodedImage> decodeBMP(std::span<const std::uint8_t> file, PixelStore& pixels) {
    const ByteReader bytes(file);
    const auto dib = bytes.from(fileHeaderSize);
    auto header = parseDIBHeader(dib);
    if (!header || header->planes != 1) {
        return std::nullopt;
    }
    // Without bit fields the fourth byte of a pixel has no meaning in a BMP file. In icons it has.
    if (header->compression == DIBHeader::Compression::none) {
        header->masks[3] = 0;
    }
    const auto canvas = pixels.allocate(header->width, header->height);
    if (!canvas) {
        return std::nullopt;
    }
    const std::size_t offset = bytes.little32(pixelOffsetField);
    const auto picture = bytes.from(offset != 0 ? offset : fileHeaderSize + header->end);
    bool hasAlpha = false;
    if (!drawDIB(*header, picture, *canvas, hasAlpha)) {
        return std::nullopt;
    }
    return DecodedImage{canvas->width(), canvas->height(), hasAlpha};
}

}  // namespace glintmark::decoder
