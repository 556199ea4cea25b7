#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "decoder/PixelStore.h"

namespace glintmark::decoder {

/// The header of a device-independent bitmap, the picture inside BMP, ICO and CUR files. In the
/// file it is a `BITMAPINFOHEADER`, one of its longer versions 2 to 5, or one of the two headers of
/// OS/2 (Microsoft, "Bitmap Storage"; OS/2 2.0 Technical Library).
struct DIBHeader {
    enum class Compression : std::uint8_t { none, runs8, runs4, bitFields };
    struct Colour {
        std::uint8_t red = 0;
        std::uint8_t green = 0;
        std::uint8_t blue = 0;
    };

    std::int64_t width = 0;
    std::int64_t height = 0;  ///< Without its sign. In ICO and CUR files twice the picture's.
    bool topDown = false;
    unsigned planes = 0;  ///< Must be 1 in a BMP file. Icons often have 0.
    unsigned bitsPerPixel = 0;
    Compression compression = Compression::none;
    std::array<std::uint32_t, 4> masks{};  ///< Red, green, blue, alpha; for 16 and 32 bits.
    std::vector<Colour> palette;           ///< For up to 8 bits.
    std::size_t end = 0;          ///< Where pixels begin, unless BMP's own offset says otherwise.
    std::size_t profile = 0;      ///< Where the colour profile of version 5 begins.
    std::size_t profileSize = 0;  ///< 0 if there is none.

    /// `at`, or the end of the colour profile if that stands there.
    std::size_t afterProfile(std::size_t at) const;

    /// Bytes from one row to the next, with `bits` per pixel.
    std::size_t bytesPerRow(unsigned bits) const;
    std::size_t bytesPerRow() const { return bytesPerRow(bitsPerPixel); }

    /// The row of `canvas` that shows row `y` of the file.
    std::uint8_t* row(const Canvas& canvas, int y) const {
        return canvas.row(topDown ? y : canvas.height() - 1 - y);
    }
};

/// Parses the header at the beginning of `dib`. Absent if it is not valid, names an unsupported
/// compression, or if its masks or palette are missing.
std::optional<DIBHeader> parseDIBHeader(std::span<const std::uint8_t> dib);

/// Draws `pixels`, in the layout of `header`, into `canvas`, which has the picture's size. Sets
/// `hasAlpha`; an alpha channel that is 0 in all pixels does not count as one. False if `pixels`
/// ends early, or if runs leave the picture.
bool drawDIB(const DIBHeader& header, std::span<const std::uint8_t> pixels, const Canvas& canvas,
             bool& hasAlpha);

}  // namespace glintmark::decoder
