#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace glintmark::decoder {

class PixelStore;

/// What was decoded; the pixels are in the last canvas that the `PixelStore` handed out.
struct DecodedImage {
    int width = 0;
    int height = 0;
    bool hasAlpha = false;  ///< Whether the file carries an alpha channel or a transparent colour.
};

/// A decoder of one format: absent when `file` is not of that format, is broken or incomplete, or
/// goes beyond the limits. An animation yields its first frame. Colour profiles, gamma and
/// densities are ignored, and so is Exif orientation: the pixels come as they are stored.
using FormatDecoder = std::optional<DecodedImage>(std::span<const std::uint8_t> file, PixelStore&);

FormatDecoder decodePNG;
FormatDecoder decodeJPEG;
FormatDecoder decodeGIF;
FormatDecoder decodeTIFF;
FormatDecoder decodeWebP;
FormatDecoder decodeAVIF;
FormatDecoder decodeBMP;
FormatDecoder
    decodeICO;  ///< ICO and CUR: the largest entry that decodes, the deepest among equals.
FormatDecoder decodeICNS;  ///< Likewise.

/// Width, height and bits per pixel from the header of a PNG file, unchecked.
struct PNGHeader {
    std::int64_t width = 0;
    std::int64_t height = 0;
    int bitsPerPixel = 0;
};
std::optional<PNGHeader> pngHeader(std::span<const std::uint8_t> file);

}  // namespace glintmark::decoder
