#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "decoder/ByteReader.h"
#include "decoder/FormatDecoders.h"
#include "decoder/ICNSPalettes.h"
#include "decoder/ImageLimits.h"
#include "decoder/PixelStore.h"

// The icon family file, with the elements that Apple's <IconStorage.h> lists. An element is a type
// of four letters, the element's length including these eight bytes, and data. Masks are separate
// elements.

namespace glintmark::decoder {

namespace {

constexpr std::size_t elementHeaderSize = 8;

enum class Coding : std::uint8_t {
    file,       // a PNG, or a JPEG 2000, which is not supported
    argb,       // "ARGB" and four channels of runs; or a file
    rgb,        // three channels of runs, with an eight-bit mask
    indexed8,   // indices into the system's 256 colours, with an eight-bit or one-bit mask
    indexed4,   // the same with 16 colours, left pixel in the upper half of a byte
    oneBit,     // one bit, 1 is black, opaque
    maskedBit,  // the same, followed by its mask
};

struct ElementType {
    std::string_view name;
    int width;
    int height;
    Coding coding;
    std::string_view mask;     // eight bits a pixel
    std::string_view bitMask;  // a bit a pixel, after that element's picture; used without `mask`
};

constexpr ElementType elementTypes[] = {
    {"ic10", 1024, 1024, Coding::file, "", ""},
    {"ic09", 512, 512, Coding::file, "", ""},
    {"ic14", 512, 512, Coding::file, "", ""},
    {"ic08", 256, 256, Coding::file, "", ""},
    {"ic13", 256, 256, Coding::file, "", ""},
    {"ic07", 128, 128, Coding::file, "", ""},
    {"it32", 128, 128, Coding::rgb, "t8mk", ""},
    {"ic12", 64, 64, Coding::file, "", ""},
    {"icp6", 64, 64, Coding::file, "", ""},
    {"SB24", 48, 48, Coding::file, "", ""},
    {"ih32", 48, 48, Coding::rgb, "h8mk", ""},
    {"ich8", 48, 48, Coding::indexed8, "h8mk", "ich#"},
    {"ich4", 48, 48, Coding::indexed4, "h8mk", "ich#"},
    {"ich#", 48, 48, Coding::maskedBit, "", "ich#"},
    {"icsB", 36, 36, Coding::argb, "", ""},
    {"ic11", 32, 32, Coding::file, "", ""},
    {"icp5", 32, 32, Coding::file, "", ""},
    {"ic05", 32, 32, Coding::argb, "", ""},
    {"il32", 32, 32, Coding::rgb, "l8mk", ""},
    {"icl8", 32, 32, Coding::indexed8, "l8mk", "ICN#"},
    {"icl4", 32, 32, Coding::indexed4, "l8mk", "ICN#"},
    {"ICN#", 32, 32, Coding::maskedBit, "", "ICN#"},
    {"ICON", 32, 32, Coding::oneBit, "", ""},
    {"sb24", 24, 24, Coding::file, "", ""},
    {"icsb", 18, 18, Coding::argb, "", ""},
    {"icp4", 16, 16, Coding::file, "", ""},
    {"ic04", 16, 16, Coding::argb, "", ""},
    {"is32", 16, 16, Coding::rgb, "s8mk", ""},
    {"ics8", 16, 16, Coding::indexed8, "s8mk", "ics#"},
    {"ics4", 16, 16, Coding::indexed4, "s8mk", "ics#"},
    {"ics#", 16, 16, Coding::maskedBit, "", "ics#"},
    {"icm8", 16, 12, Coding::indexed8, "", "icm#"},
    {"icm4", 16, 12, Coding::indexed4, "", "icm#"},
    {"icm#", 16, 12, Coding::maskedBit, "", "icm#"},
};

struct Element {
    std::string_view name;
    std::span<const std::uint8_t> data;
};

struct Picture {
    const ElementType* type;
    std::span<const std::uint8_t> data;
    std::int64_t width;
    std::int64_t height;
};

/// Absent if an element ends outside the file or there are too many.
std::optional<std::vector<Element>> readElements(std::span<const std::uint8_t> file) {
    const ByteReader bytes(file);
    std::vector<Element> elements;
    std::size_t at = elementHeaderSize;
    while (bytes.has(at, elementHeaderSize)) {
        const std::size_t length = bytes.big32(at + 4);
        if (length < elementHeaderSize || !bytes.has(at, length)) {
            return std::nullopt;
        }
        if (elements.size() == maximumEntries) {
            return std::nullopt;
        }
        const auto* name = reinterpret_cast<const char*>(&file[at]);
        elements.push_back({std::string_view(name, 4),
                            file.subspan(at + elementHeaderSize, length - elementHeaderSize)});
        at += length;
    }
    return elements;
}

std::span<const std::uint8_t> find(const std::vector<Element>& elements, std::string_view name) {
    const auto found = std::ranges::find(elements, name, &Element::name);
    return found == elements.end() ? std::span<const std::uint8_t>() : found->data;
}

// Equal sizes keep the order of the table, which is by depth.
std::vector<Picture> picturesBestFirst(const std::vector<Element>& elements) {
    std::vector<Picture> pictures;
    for (const ElementType& type : elementTypes) {
        const auto data = find(elements, type.name);
        if (data.empty()) {
            continue;
        }
        const auto png = pngHeader(data);  // its size may differ from that of the element's type
        if (png && (png->width > maximumSide || png->height > maximumSide)) {
            continue;
        }
        pictures.push_back(
            {&type, data, png ? png->width : type.width, png ? png->height : type.height});
    }
    std::ranges::stable_sort(pictures, [](const Picture& a, const Picture& b) {
        return a.width * a.height > b.width * b.height;
    });
    return pictures;
}

// Unpacks the runs of these elements. After a control byte n below 128, n + 1 literal bytes follow;
// otherwise the next byte is repeated n - 125 times. Absent if the data ends before `count` bytes.
std::optional<std::vector<std::uint8_t>> unpack(std::span<const std::uint8_t> runs,
                                                std::size_t count) {
    const ByteReader bytes(runs);
    std::vector<std::uint8_t> out;
    out.reserve(count + 130);
    for (std::size_t at = 0; out.size() < count;) {
        const std::size_t control = bytes.byte(at);
        const bool literal = control < 128;
        const std::size_t length = literal ? control + 1 : control - 125;
        const std::size_t taken = literal ? length : 1;
        if (!bytes.has(at, taken + 1)) {
            return std::nullopt;
        }
        if (literal) {
            const auto part = runs.subspan(at + 1, length);
            out.insert(out.end(), part.begin(), part.end());
        } else {
            out.insert(out.end(), length, bytes.byte(at + 1));
        }
        at += taken + 1;
    }
    return out;
}

std::size_t pixelCount(const ElementType& type) {
    return static_cast<std::size_t>(type.width) * static_cast<std::size_t>(type.height);
}

bool drawARGB(const Picture& picture, const Canvas& canvas) {
    const std::size_t count = pixelCount(*picture.type);
    const auto planes = unpack(picture.data.subspan(4), count * 4);
    if (!planes) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        std::uint8_t* rgba = &canvas.pixels()[i * 4];
        for (std::size_t c = 0; c < 3; ++c) {
            rgba[c] = (*planes)[(c + 1) * count + i];
        }
        rgba[3] = (*planes)[i];
    }
    return true;
}

/// Draws red, green and blue, which are the last three of every `bytesPerPixel` bytes.
void drawUncompressed(std::span<const std::uint8_t> data, std::size_t bytesPerPixel,
                      const Canvas& canvas) {
    std::uint8_t* rgba = canvas.pixels().data();
    for (std::size_t at = bytesPerPixel - 3; at < data.size(); at += bytesPerPixel, rgba += 4) {
        std::copy_n(&data[at], 3, rgba);
        rgba[3] = 255;
    }
}

bool drawRGB(const Picture& picture, const Canvas& canvas) {
    const std::size_t count = pixelCount(*picture.type);
    const ByteReader bytes(picture.data);
    // An it32 element begins with four zero bytes.
    const std::size_t skipped = picture.type->name == "it32" && bytes.big32(0) == 0 ? 4 : 0;
    const auto data = bytes.from(skipped);
    // Data of exactly this length are not packed into runs.
    if (data.size() == count * 3 || data.size() == count * 4) {
        drawUncompressed(data, data.size() / count, canvas);
        return true;
    }
    const auto planes = unpack(data, count * 3);
    if (!planes) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        std::uint8_t* rgba = &canvas.pixels()[i * 4];
        for (std::size_t c = 0; c < 3; ++c) {
            rgba[c] = (*planes)[c * count + i];
        }
        rgba[3] = 255;
    }
    return true;
}

void put(const Canvas& canvas, std::size_t pixel, std::uint32_t colour) {
    std::uint8_t* rgba = &canvas.pixels()[pixel * 4];
    rgba[0] = static_cast<std::uint8_t>(colour >> 16U);
    rgba[1] = static_cast<std::uint8_t>(colour >> 8U);
    rgba[2] = static_cast<std::uint8_t>(colour);
    rgba[3] = 255;
}

bool bitAt(const ByteReader& bits, std::size_t bit) {
    return (bits.byte(bit / 8) >> (7 - bit % 8) & 1U) != 0;
}

bool drawIndexed(const Picture& picture, const Canvas& canvas) {
    const std::size_t count = pixelCount(*picture.type);
    const ByteReader bytes(picture.data);
    const Coding coding = picture.type->coding;
    const std::size_t perByte = coding == Coding::indexed8 ? 1 : coding == Coding::indexed4 ? 2 : 8;
    if (!bytes.has(0, count / perByte)) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned byte = bytes.byte(i / perByte);
        switch (coding) {
            case Coding::indexed8:
                put(canvas, i, systemColourOf8Bits(byte));
                break;
            case Coding::indexed4:
                put(canvas, i, systemColourOf4Bits(i % 2 == 0 ? byte >> 4U : byte & 0xFU));
                break;
            default:
                put(canvas, i, bitAt(bytes, i) ? 0x000000 : 0xFFFFFF);
                break;
        }
    }
    return true;
}

/// False if the picture has no mask or its mask is too short.
bool applyMask(const ElementType& type, const std::vector<Element>& elements,
               const Canvas& canvas) {
    const std::size_t count = pixelCount(type);
    const auto mask = find(elements, type.mask);
    if (mask.size() >= count) {
        for (std::size_t i = 0; i < count; ++i) {
            canvas.pixels()[i * 4 + 3] = mask[i];
        }
        return true;
    }
    const ByteReader bits(find(elements, type.bitMask));
    if (!bits.has(0, count / 4)) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        canvas.pixels()[i * 4 + 3] = bitAt(bits, count + i) ? 255 : 0;
    }
    return true;
}

std::optional<DecodedImage> decodePicture(const Picture& picture,
                                          const std::vector<Element>& elements,
                                          PixelStore& pixels) {
    const ElementType& type = *picture.type;
    if (pngHeader(picture.data)) {
        return decodePNG(picture.data, pixels);
    }
    const bool argb = ByteReader(picture.data).matches(0, "ARGB");
    if (type.coding == Coding::file || (type.coding == Coding::argb && !argb)) {
        return std::nullopt;
    }
    const auto canvas = pixels.allocate(type.width, type.height);
    if (!canvas) {
        return std::nullopt;
    }
    DecodedImage image{type.width, type.height, true};
    if (type.coding == Coding::argb) {
        return drawARGB(picture, *canvas) ? std::optional(image) : std::nullopt;
    }
    const bool drawn =
        type.coding == Coding::rgb ? drawRGB(picture, *canvas) : drawIndexed(picture, *canvas);
    if (!drawn) {
        return std::nullopt;
    }
    image.hasAlpha = applyMask(type, elements, *canvas);
    return image;
}

}  // namespace

std::optional<DecodedImage> decodeICNS(std::span<const std::uint8_t> file, PixelStore& pixels) {
    const auto elements = readElements(file);
    if (!elements) {
        return std::nullopt;
    }
    for (const Picture& picture : picturesBestFirst(*elements)) {
        if (const auto decoded = decodePicture(picture, *elements, pixels)) {
            return decoded;
        }
    }
    return std::nullopt;
}

}  // namespace glintmark::decoder
