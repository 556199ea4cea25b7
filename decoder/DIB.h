#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "decoder/PixelStore.h"

namespace glintmark::decoder {

/// The header of a device-independent bitmap, the picture inside BMP, ICO and CUR files: what
/// `BITMAPINFOHEADER`, its longer versions 2 to 5, and the two headers of OS/2 say (Microsoft,
/// "Bitmap Storage"; OS/2 2.0 Technical Library).
struct DIBHeader {
    enum class Compression : std::uint8_t { none, runs8, runs4, bitFields };
    struct Colour {
        std::uint8_t red = 0;
        std::uint8_t green = 0;
        std::uint8_t blue = 0;
    };

    std::int64_t width = 0;
    std::int64_t height = 0;  ///< As written, without its sign; in ICO and CUR twice the picture's.
    bool topDown = false;
    unsigned bitsPerPixel = 0;
    Compression compression = Compression::none;
    std::array<std::uint32_t, 4> masks{};  ///< Red, green, blue, alpha; for 16 and 32 bits.
    std::vector<Colour> palette;           ///< For up to 8 bits.
    std::size_t end = 0;  ///< Where the palette ends and, but for BMP's own offset, pixels begin.

    /// Bytes from one row to the next.
    std::size_t bytesPerRow() const;
};

/// `dib` begins with the header. Absent when it is not one, or names a compression that is none of
/// the above, or masks and a palette that are not there.
std::optional<DIBHeader> parseDIBHeader(std::span<const std::uint8_t> dib);

/// Writes the picture of `pixels`, laid out as `header` says, into `canvas`, which has its size.
/// A channel of alpha counts only where any pixel uses it; `hasAlpha` is set accordingly. False
/// when `pixels` ends early.
bool drawDIB(const DIBHeader& header, std::span<const std::uint8_t> pixels, const Canvas& canvas,
             bool& hasAlpha);

}  // namespace glintmark::decoder
