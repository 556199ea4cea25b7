#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace glintmark::decoder {

class PixelStore;

/// A decoded image. Its pixels are in the last canvas of the `PixelStore`.
struct DecodedImage {
    int width = 0;
    int height = 0;
    bool hasAlpha = false;  ///< True if the file has an alpha channel or a transparent colour.
};

/// Decodes one format. Absent if `file` has another format, is broken or incomplete, or exceeds the
/// limits. Of an animation it decodes the first frame. The picture stands upright. Densities are
/// ignored.
using FormatDecoder = std::optional<DecodedImage>(std::span<const std::uint8_t> file, PixelStore&);

FormatDecoder decodePNG;
FormatDecoder decodeJPEG;
FormatDecoder decodeGIF;
/// Chooses among the pages like `decodeICO` among the entries.
FormatDecoder decodeTIFF;
FormatDecoder decodeWebP;
FormatDecoder decodeAVIF;
FormatDecoder decodeBMP;
/// ICO and CUR. Decodes the largest entry that it can; of equal sizes, the one with most bits.
FormatDecoder decodeICO;
/// Chooses like `decodeICO`.
FormatDecoder decodeICNS;

inline constexpr std::string_view pngSignature = "\x89PNG\r\n\x1a\n";

/// Width, height and bits per pixel from the header of a PNG file, unchecked.
struct PNGHeader {
    std::int64_t width = 0;
    std::int64_t height = 0;
    int bitsPerPixel = 0;
};
std::optional<PNGHeader> pngHeader(std::span<const std::uint8_t> file);

}  // namespace glintmark::decoder
