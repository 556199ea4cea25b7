#include "decoder/Orientation.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "decoder/ByteReader.h"
#include "decoder/ImageLimits.h"

namespace glintmark::decoder {

namespace {

// A copy of a larger picture may not fit into the decoder's memory. Without one the same takes some
// six times as long.
constexpr std::size_t maximumCopiedPixels = maximumPixels / 4;

constexpr std::string_view exifIdentifier("Exif\0\0", 6);
constexpr std::size_t directoryField = 4;
constexpr std::size_t entrySize = 12;
constexpr std::uint32_t orientationTag = 274;

using Pixel = std::uint32_t;

Pixel read(const std::uint8_t* at) {
    Pixel pixel = 0;
    std::memcpy(&pixel, at, sizeof pixel);
    return pixel;
}

void write(std::uint8_t* at, Pixel pixel) { std::memcpy(at, &pixel, sizeof pixel); }

void mirrorRow(std::uint8_t* row, int width) {
    for (int left = 0, right = width - 1; left < right; ++left, --right) {
        std::uint8_t* a = row + static_cast<std::ptrdiff_t>(left) * 4;
        std::uint8_t* b = row + static_cast<std::ptrdiff_t>(right) * 4;
        std::swap_ranges(a, a + 4, b);
    }
}

void flipRows(const Canvas& canvas) {
    for (int top = 0, bottom = canvas.height() - 1; top < bottom; ++top, --bottom) {
        std::uint8_t* row = canvas.row(top);
        std::swap_ranges(row, row + canvas.bytesPerRow(), canvas.row(bottom));
    }
}

/// Reads a copy in tiles that fit into the processor's cache.
void transposeFromCopy(std::span<std::uint8_t> pixels, std::size_t width, std::size_t height) {
    constexpr std::size_t tile = 16;
    const std::vector<std::uint8_t> copy(pixels.begin(), pixels.end());
    for (std::size_t top = 0; top < height; top += tile) {
        for (std::size_t left = 0; left < width; left += tile) {
            for (std::size_t y = top; y < std::min(top + tile, height); ++y) {
                for (std::size_t x = left; x < std::min(left + tile, width); ++x) {
                    write(&pixels[(x * height + y) * 4], read(&copy[(y * width + x) * 4]));
                }
            }
        }
    }
}

/// Moves each pixel to its place, and the one that stood there to its own, until all have moved.
void transposeInPlace(std::span<std::uint8_t> pixels, std::size_t width, std::size_t height) {
    std::vector<bool> moved(width * height);
    for (std::size_t start = 0; start < moved.size(); ++start) {
        Pixel pixel = read(&pixels[start * 4]);
        for (std::size_t at = start; !moved[at];) {
            moved[at] = true;
            at = at % width * height + at / width;
            const Pixel next = read(&pixels[at * 4]);
            write(&pixels[at * 4], pixel);
            pixel = next;
        }
    }
}

Canvas transposed(const Canvas& canvas) {
    const auto width = static_cast<std::size_t>(canvas.width());
    const auto height = static_cast<std::size_t>(canvas.height());
    if (width * height <= maximumCopiedPixels) {
        transposeFromCopy(canvas.pixels(), width, height);
    } else {
        transposeInPlace(canvas.pixels(), width, height);
    }
    return {canvas.height(), canvas.width(), canvas.pixels()};
}

}  // namespace

Orientation orientationOf(unsigned number) {
    if (number < 1 || number > 8) {
        return {};
    }
    const bool transpose = number >= 5;
    const bool mirror = number == 2 || number == 3 || number == 6 || number == 7;
    const bool flip = number == 3 || number == 4 || number == 7 || number == 8;
    return {transpose, mirror, flip};
}

// TIFF 6.0, section 2: a header, then the entries of the first directory. A short value stands in
// the first bytes of its entry's value.
Orientation orientationIn(std::span<const std::uint8_t> exif) {
    const bool identified = ByteReader(exif).matches(0, exifIdentifier);
    const ByteReader tiff(identified ? exif.subspan(exifIdentifier.size()) : exif);
    const bool bigEndian = tiff.matches(0, "MM");
    if (!bigEndian && !tiff.matches(0, "II")) {
        return {};
    }
    const auto short16 = [&](std::size_t at) {
        return bigEndian ? tiff.big32(at) >> 16U : tiff.little16(at);
    };
    std::size_t at =
        bigEndian ? tiff.big32(directoryField) : std::size_t{tiff.little32(directoryField)};
    for (unsigned left = short16(at); left > 0; --left, at += entrySize) {
        if (short16(at + 2) == orientationTag) {
            return orientationOf(short16(at + 10));
        }
    }
    return {};
}

DecodedImage upright(const Canvas& canvas, Orientation orientation, bool hasAlpha) {
    const Canvas turned = orientation.transpose ? transposed(canvas) : canvas;
    if (orientation.mirror) {
        for (int y = 0; y < turned.height(); ++y) {
            mirrorRow(turned.row(y), turned.width());
        }
    }
    if (orientation.flip) {
        flipRows(turned);
    }
    return DecodedImage{turned.width(), turned.height(), hasAlpha};
}

}  // namespace glintmark::decoder
