#include <algorithm>
#include <cstdlib>

#include "decoder/ByteReader.h"
#include "decoder/DIB.h"

namespace glintmark::decoder {

namespace {

constexpr std::size_t coreHeaderSize = 12;     // OS/2 1.x, with 16-bit sizes and 3-byte colours
constexpr std::size_t minimumHeaderSize = 16;  // an OS/2 2.x header may end here
constexpr std::size_t infoHeaderSize = 40;
constexpr std::size_t headerWithAlphaMaskSize = 56;  // version 3
constexpr std::size_t os2HeaderSize = 64;
constexpr std::size_t version4HeaderSize = 108;
constexpr std::size_t version5HeaderSize = 124;
constexpr std::size_t colourSpaceField = 56;
constexpr std::size_t profileField = 112;
constexpr std::size_t masksOffset = 40;  // after the first 40 bytes, inside the header or after it

constexpr std::uint32_t biRGB = 0;
constexpr std::uint32_t biRLE8 = 1;
constexpr std::uint32_t biRLE4 = 2;
constexpr std::uint32_t biBitFields = 3;
constexpr std::uint32_t biAlphaBitFields = 6;

constexpr std::uint32_t profileEmbedded = 0x4D424544;  // "MBED"
constexpr std::uint32_t profileLinked = 0x4C494E4B;    // "LINK", the data is a file's name

constexpr std::array<std::uint32_t, 4> masksOf16Bits = {0x7C00, 0x03E0, 0x001F, 0};
constexpr std::array<std::uint32_t, 4> masksOf32Bits = {0xFF0000, 0x00FF00, 0x0000FF, 0xFF000000};

bool isKnownDepth(unsigned bits) {
    static constexpr unsigned depths[] = {1, 2, 4, 8, 16, 24, 32};
    return std::ranges::find(depths, bits) != std::end(depths);
}

bool isKnownHeaderSize(std::size_t size) {
    return (size >= minimumHeaderSize && size <= os2HeaderSize) || size == version4HeaderSize ||
           size == version5HeaderSize;
}

bool readSize(const ByteReader& fields, DIBHeader& header) {
    header.width = static_cast<std::int32_t>(fields.little32(4));
    const auto height = static_cast<std::int32_t>(fields.little32(8));
    header.height = std::abs(std::int64_t{height});
    header.topDown = height < 0;
    header.planes = fields.little16(12);
    header.bitsPerPixel = fields.little16(14);
    return header.width >= 1 && header.height >= 1 && isKnownDepth(header.bitsPerPixel);
}

bool readMasks(const ByteReader& dib, std::size_t headerSize, std::uint32_t compression,
               DIBHeader& header) {
    header.masks = header.bitsPerPixel == 16 ? masksOf16Bits : masksOf32Bits;
    header.end = headerSize;
    if (header.compression != DIBHeader::Compression::bitFields) {
        return true;
    }
    if (header.bitsPerPixel != 16 && header.bitsPerPixel != 32) {
        return false;
    }
    const bool alpha = compression == biAlphaBitFields ||
                       (headerSize >= headerWithAlphaMaskSize && headerSize != os2HeaderSize);
    const std::size_t count = alpha ? 4 : 3;
    header.masks = {};
    for (std::size_t i = 0; i < count; ++i) {
        header.masks[i] = dib.little32(masksOffset + i * 4);
    }
    header.end = std::max(headerSize, masksOffset + count * 4);
    return dib.has(0, header.end);
}

bool readPalette(const ByteReader& dib, std::uint32_t used, std::size_t colourSize,
                 DIBHeader& header) {
    if (header.bitsPerPixel > 8) {
        // A palette of a picture without indices is a hint for old displays, and is skipped.
        header.end += used * colourSize;
        return dib.has(0, header.end);
    }
    const std::uint32_t maximumCount = 1U << header.bitsPerPixel;
    const std::uint32_t count = used == 0 ? maximumCount : used;
    if (!dib.has(header.end, count * colourSize)) {
        return false;
    }
    for (std::uint32_t i = 0; i < std::min(count, maximumCount); ++i) {
        const std::size_t at = header.end + i * colourSize;
        header.palette.push_back({dib.byte(at + 2), dib.byte(at + 1), dib.byte(at)});
    }
    header.end += count * colourSize;
    return true;
}

std::optional<DIBHeader> parseCoreHeader(const ByteReader& dib) {
    DIBHeader header;
    header.width = dib.little16(4);
    header.height = dib.little16(6);
    header.planes = dib.little16(8);
    header.bitsPerPixel = dib.little16(10);
    header.end = coreHeaderSize;
    header.masks = masksOf32Bits;
    if (!isKnownDepth(header.bitsPerPixel)) {
        return std::nullopt;
    }
    if (!readPalette(dib, 0, 3, header)) {
        return std::nullopt;
    }
    return header;
}

bool readCompression(std::uint32_t compression, std::size_t headerSize, DIBHeader& header) {
    using enum DIBHeader::Compression;
    // In OS/2 2.x the numbers from 3 on have other meanings (Huffman and 24-bit runs).
    const bool os2 = headerSize == os2HeaderSize || headerSize < infoHeaderSize;
    switch (compression) {
        case biRGB:
            return true;
        case biRLE8:
            header.compression = runs8;
            return header.bitsPerPixel == 8;
        case biRLE4:
            header.compression = runs4;
            return header.bitsPerPixel == 4;
        case biBitFields:
        case biAlphaBitFields:
            header.compression = bitFields;
            return !os2;
        default:
            return false;
    }
}

void readProfile(const ByteReader& dib, const ByteReader& fields, DIBHeader& header) {
    const std::uint32_t colourSpace = fields.little32(colourSpaceField);
    const std::size_t size = fields.little32(profileField + 4);
    header.profile = fields.little32(profileField);
    if ((colourSpace == profileEmbedded || colourSpace == profileLinked) &&
        dib.has(header.profile, size)) {
        header.profileSize = size;
    }
}

}  // namespace

std::size_t DIBHeader::bytesPerRow(unsigned bits) const {
    return (static_cast<std::size_t>(width) * bits + 31) / 32 * 4;
}

std::size_t DIBHeader::afterProfile(std::size_t at) const {
    const std::size_t aligned = (at + 3) / 4 * 4;
    const bool isHere = profileSize > 0 && (profile == at || profile == aligned);
    return isHere ? profile + profileSize : at;
}

std::optional<DIBHeader> parseDIBHeader(std::span<const std::uint8_t> dib) {
    const ByteReader bytes(dib);
    const std::size_t size = bytes.little32(0);
    if (!bytes.has(0, size)) {
        return std::nullopt;
    }
    if (size == coreHeaderSize) {
        return parseCoreHeader(bytes);
    }
    if (!isKnownHeaderSize(size)) {
        return std::nullopt;
    }

    // An OS/2 2.x header may end after any field; a missing field is 0.
    const ByteReader fields(dib.first(size));
    const std::uint32_t compression = fields.little32(16);
    const std::uint32_t usedColours = fields.little32(32);
    DIBHeader header;
    if (!readSize(fields, header) || !readCompression(compression, size, header) ||
        !readMasks(bytes, size, compression, header) ||
        !readPalette(bytes, usedColours, 4, header)) {
        return std::nullopt;
    }
    // In memory the profile stands before the pixels, in files after them.
    readProfile(bytes, fields, header);
    header.end = header.afterProfile(header.end);
    return header;
}

}  // namespace glintmark::decoder
