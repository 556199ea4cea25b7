#include <algorithm>
#include <bit>

#include "decoder/ByteReader.h"
#include "decoder/DIB.h"

namespace glintmark::decoder {

namespace {

/// One channel of a pixel: the bits under a mask, scaled to 8 bits.
class Channel {
public:
    explicit Channel(std::uint32_t mask)
        : mask_(mask),
          shift_(mask == 0 ? 0 : static_cast<unsigned>(std::countr_zero(mask))),
          maximum_(mask >> shift_) {}

    bool exists() const { return mask_ != 0; }

    std::uint8_t of(std::uint32_t pixel) const {
        if (mask_ == 0) {
            return 0;
        }
        const std::uint64_t value = (pixel & mask_) >> shift_;
        return static_cast<std::uint8_t>((value * 255 + maximum_ / 2) / maximum_);
    }

private:
    std::uint32_t mask_;
    unsigned shift_;
    std::uint32_t maximum_;
};

void put(std::uint8_t* rgba, DIBHeader::Colour colour) {
    rgba[0] = colour.red;
    rgba[1] = colour.green;
    rgba[2] = colour.blue;
    rgba[3] = 255;
}

// An index beyond the palette is black.
DIBHeader::Colour colourOf(const DIBHeader& header, std::size_t index) {
    return index < header.palette.size() ? header.palette[index] : DIBHeader::Colour{};
}

void drawIndexedRow(const DIBHeader& header, std::span<const std::uint8_t> row, std::uint8_t* rgba,
                    int width) {
    const unsigned bits = header.bitsPerPixel;
    const unsigned mask = (1U << bits) - 1;
    for (unsigned x = 0; x < static_cast<unsigned>(width); ++x, rgba += 4) {
        const unsigned bit = x * bits;
        put(rgba, colourOf(header, row[bit / 8] >> (8 - bits - bit % 8) & mask));
    }
}

void draw24BitRow(std::span<const std::uint8_t> row, std::uint8_t* rgba, int width) {
    for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x, rgba += 4) {
        put(rgba, {row[x * 3 + 2], row[x * 3 + 1], row[x * 3]});
    }
}

/// Draws rows with 16 or 32 bits per pixel. Remembers whether any pixel is visible.
class MaskedRows {
public:
    explicit MaskedRows(const DIBHeader& header)
        : size_(header.bitsPerPixel / 8),
          red_(header.masks[0]),
          green_(header.masks[1]),
          blue_(header.masks[2]),
          alpha_(header.masks[3]) {}

    void draw(std::span<const std::uint8_t> row, std::uint8_t* rgba, int width) {
        const ByteReader bytes(row);
        for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x, rgba += 4) {
            const std::uint32_t pixel = size_ == 2 ? bytes.little16(x * 2) : bytes.little32(x * 4);
            rgba[0] = red_.of(pixel);
            rgba[1] = green_.of(pixel);
            rgba[2] = blue_.of(pixel);
            rgba[3] = alpha_.exists() ? alpha_.of(pixel) : 255;
            anyVisible_ = anyVisible_ || rgba[3] != 0;
        }
    }

    bool hasAlpha() const { return alpha_.exists() && anyVisible_; }

private:
    std::size_t size_;
    Channel red_;
    Channel green_;
    Channel blue_;
    Channel alpha_;
    bool anyVisible_ = false;
};

bool drawUncompressed(const DIBHeader& header, std::span<const std::uint8_t> pixels,
                      const Canvas& canvas, bool& hasAlpha) {
    const ByteReader bytes(pixels);
    const std::size_t stride = header.bytesPerRow();
    const std::size_t used = (static_cast<std::size_t>(header.width) * header.bitsPerPixel + 7) / 8;
    MaskedRows masked(header);
    for (int y = 0; y < canvas.height(); ++y) {
        const std::size_t at = static_cast<std::size_t>(y) * stride;
        if (!bytes.has(at, used)) {
            return false;
        }
        const std::span<const std::uint8_t> row = pixels.subspan(at, used);
        std::uint8_t* rgba = header.row(canvas, y);
        if (header.bitsPerPixel <= 8) {
            drawIndexedRow(header, row, rgba, canvas.width());
        } else if (header.bitsPerPixel == 24) {
            draw24BitRow(row, rgba, canvas.width());
        } else {
            masked.draw(row, rgba, canvas.width());
        }
    }
    hasAlpha = masked.hasAlpha();
    return true;
}

void makeOpaque(const Canvas& canvas) {
    const std::span<std::uint8_t> pixels = canvas.pixels();
    for (std::size_t i = 3; i < pixels.size(); i += 4) {
        pixels[i] = 255;
    }
}

/// Draws runs of 8-bit or 4-bit indices (Microsoft, "Bitmap Compression"). Pixels outside all runs
/// get the first colour.
class RunReader {
public:
    RunReader(const DIBHeader& header, std::span<const std::uint8_t> runs, const Canvas& canvas)
        : header_(header), bytes_(runs), canvas_(canvas) {}

    bool draw() {
        const std::span<std::uint8_t> all = canvas_.pixels();
        for (std::size_t i = 0; i < all.size(); i += 4) {
            put(&all[i], colourOf(header_, 0));
        }
        while (at_ < bytes_.size() || y_ < canvas_.height()) {
            if (!bytes_.has(at_, 2)) {
                return false;
            }
            const std::uint8_t count = bytes_.byte(at_++);
            const std::uint8_t value = bytes_.byte(at_++);
            if (count == 0 && value == endOfBitmap) {
                return true;
            }
            if (!(count > 0 ? drawRun(count, value) : escape(value))) {
                return false;
            }
        }
        return true;
    }

private:
    static constexpr std::uint8_t endOfLine = 0;
    static constexpr std::uint8_t endOfBitmap = 1;
    static constexpr std::uint8_t delta = 2;

    void drawIndex(unsigned index) {
        if (x_ >= canvas_.width()) {
            return;
        }
        put(header_.row(canvas_, y_) + static_cast<std::ptrdiff_t>(x_) * 4,
            colourOf(header_, index));
        ++x_;
    }

    // A byte holds two 4-bit indices, the left one in the upper half.
    unsigned indexIn(std::uint8_t byte, unsigned position) const {
        if (header_.bitsPerPixel == 8) {
            return byte;
        }
        return position % 2 == 0 ? byte >> 4U : byte & 0xFU;
    }

    // A row of 4-bit indices may fill its last byte.
    bool fitsRow(unsigned count) const {
        const int padding = header_.bitsPerPixel == 4 ? canvas_.width() % 2 : 0;
        return y_ < canvas_.height() && static_cast<int>(count) <= canvas_.width() + padding - x_;
    }

    bool drawRun(unsigned count, std::uint8_t value) {
        if (!fitsRow(count)) {
            return false;
        }
        for (unsigned i = 0; i < count; ++i) {
            drawIndex(indexIn(value, i));
        }
        return true;
    }

    bool escape(std::uint8_t value) {
        if (value == endOfLine) {
            x_ = 0;
            return ++y_ <= canvas_.height();
        }
        if (value == delta) {
            if (!bytes_.has(at_, 2)) {
                return false;
            }
            x_ += bytes_.byte(at_++);
            y_ += bytes_.byte(at_++);
            return x_ <= canvas_.width() && y_ <= canvas_.height();
        }
        return drawLiteral(value);
    }

    bool drawLiteral(unsigned count) {
        const std::size_t length = (count * header_.bitsPerPixel + 7) / 8;
        if (!bytes_.has(at_, length) || !fitsRow(count)) {
            return false;
        }
        for (unsigned i = 0; i < count; ++i) {
            drawIndex(indexIn(bytes_.byte(at_ + i * header_.bitsPerPixel / 8), i));
        }
        at_ += length + length % 2;  // padded to 16 bits
        return true;
    }

    const DIBHeader& header_;
    ByteReader bytes_;
    const Canvas& canvas_;
    std::size_t at_ = 0;
    int x_ = 0;
    int y_ = 0;
};

}  // namespace

bool drawDIB(const DIBHeader& header, std::span<const std::uint8_t> pixels, const Canvas& canvas,
             bool& hasAlpha) {
    using enum DIBHeader::Compression;
    hasAlpha = false;
    if (header.compression == runs8 || header.compression == runs4) {
        return RunReader(header, pixels, canvas).draw();
    }
    if (!drawUncompressed(header, pixels, canvas, hasAlpha)) {
        return false;
    }
    if (!hasAlpha) {
        makeOpaque(canvas);
    }
    return true;
}

}  // namespace glintmark::decoder
