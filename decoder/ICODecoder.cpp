#include <algorithm>
#include <vector>

#include "decoder/ByteReader.h"
#include "decoder/DIB.h"
#include "decoder/FormatDecoders.h"
#include "decoder/ImageLimits.h"
#include "decoder/PixelStore.h"

// The icon directory: Microsoft, "Icons" (1995) and the Win32 structures ICONDIR and ICONDIRENTRY.

namespace glintmark::decoder {

namespace {

constexpr std::size_t directorySize = 6;
constexpr std::size_t entrySize = 16;
constexpr std::size_t lengthField = 8;
constexpr std::size_t offsetField = 12;

/// An image of the file. Size, depth and the number of bytes come from the image itself, since
/// those of the directory are often wrong, and its sizes end at 256 pixels.
struct Entry {
    std::span<const std::uint8_t> bytes;  // up to the end of the file
    std::size_t length = 0;               // that of the directory
    std::optional<DIBHeader> dib;         // absent for a PNG
    std::int64_t width = 0;
    std::int64_t height = 0;
    unsigned depth = 0;
};

std::optional<Entry> readEntry(std::span<const std::uint8_t> bytes, std::size_t length) {
    if (const auto png = pngHeader(bytes)) {
        return Entry{bytes,      length,      std::nullopt,
                     png->width, png->height, static_cast<unsigned>(png->bitsPerPixel)};
    }
    auto dib = parseDIBHeader(bytes);
    if (!dib) {
        return std::nullopt;
    }
    dib->height /= 2;  // the header also counts the rows of the mask
    Entry entry{bytes, length, std::nullopt, dib->width, dib->height, dib->bitsPerPixel};
    entry.dib = std::move(dib);
    return entry;
}

std::vector<Entry> entriesBestFirst(const ByteReader& file, std::size_t count) {
    std::vector<Entry> entries;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = directorySize + i * entrySize;
        auto entry =
            readEntry(file.from(file.little32(at + offsetField)), file.little32(at + lengthField));
        if (!entry || entry->width > maximumSide || entry->height > maximumSide) {
            continue;
        }
        entries.push_back(std::move(*entry));
    }
    std::ranges::stable_sort(entries, [](const Entry& a, const Entry& b) {
        const std::int64_t areaOfA = a.width * a.height;
        const std::int64_t areaOfB = b.width * b.height;
        return areaOfA != areaOfB ? areaOfA > areaOfB : a.depth > b.depth;
    });
    return entries;
}

// The mask follows the picture. It has one bit per pixel, set for a transparent one, in rows like
// those of a one-bit picture. Pixels beyond the end of a missing or short mask are opaque.
void applyMask(const DIBHeader& header, std::span<const std::uint8_t> mask, const Canvas& canvas) {
    const ByteReader bytes(mask);
    const std::size_t stride = header.bytesPerRow(1);
    for (int y = 0; y < canvas.height(); ++y) {
        std::uint8_t* rgba = header.row(canvas, y);
        for (unsigned x = 0; x < static_cast<unsigned>(canvas.width()); ++x) {
            const unsigned byte = bytes.byte(static_cast<std::size_t>(y) * stride + x / 8);
            if ((byte >> (7 - x % 8) & 1U) != 0) {
                rgba[x * 4 + 3] = 0;
            }
        }
    }
}

std::optional<DecodedImage> decodeDIBEntry(const Entry& entry, PixelStore& pixels) {
    const DIBHeader& header = *entry.dib;
    using enum DIBHeader::Compression;
    if (header.compression == runs8 || header.compression == runs4) {
        return std::nullopt;
    }
    const auto canvas = pixels.allocate(entry.width, entry.height);
    if (!canvas) {
        return std::nullopt;
    }
    const ByteReader bytes(entry.bytes);
    bool usesAlpha = false;
    if (!drawDIB(header, bytes.from(header.end), *canvas, usesAlpha)) {
        return std::nullopt;
    }
    // A picture with an alpha channel has the mask only for old displays. An entry that ends with
    // its picture has none.
    const std::size_t pictureEnd =
        header.end + header.bytesPerRow() * static_cast<std::size_t>(entry.height);
    if (!usesAlpha && entry.length != pictureEnd) {
        applyMask(header, bytes.from(header.afterProfile(pictureEnd)), *canvas);
    }
    return DecodedImage{canvas->width(), canvas->height(), true};
}

}  // namespace

std::optional<DecodedImage> decodeICO(std::span<const std::uint8_t> file, PixelStore& pixels) {
    const ByteReader bytes(file);
    const std::size_t count = bytes.little16(4);
    if (count == 0 || count > maximumEntries) {
        return std::nullopt;
    }
    for (const Entry& entry : entriesBestFirst(bytes, count)) {
        const auto decoded =
            entry.dib ? decodeDIBEntry(entry, pixels) : decodePNG(entry.bytes, pixels);
        if (decoded) {
            return decoded;
        }
    }
    return std::nullopt;
}

}  // namespace glintmark::decoder
