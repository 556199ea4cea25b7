#include "decoder/DecodeImage.h"

#include <new>
#include <string_view>

#include "decoder/ByteReader.h"

namespace glintmark::decoder {

namespace {

using namespace std::string_view_literals;

// ISO/IEC 14496-12, section 4.3: the file type box is the first and lists the brands of the file.
bool isAVIF(const ByteReader& file) {
    if (!file.matches(4, "ftyp")) {
        return false;
    }
    const std::size_t end = std::min<std::size_t>(file.big32(0), file.size());
    if (file.matches(8, "avif") || file.matches(8, "avis")) {
        return true;
    }
    for (std::size_t brand = 16; brand + 4 <= end; brand += 4) {
        if (file.matches(brand, "avif") || file.matches(brand, "avis")) {
            return true;
        }
    }
    return false;
}

FormatDecoder* decoderFor(const ByteReader& file) {
    struct Signature {
        std::string_view bytes;
        FormatDecoder* decoder;
    };
    static constexpr Signature signatures[] = {
        {pngSignature, decodePNG},  {"\xff\xd8\xff"sv, decodeJPEG},
        {"GIF87a"sv, decodeGIF},    {"GIF89a"sv, decodeGIF},
        {"II\x2a\0"sv, decodeTIFF}, {"MM\0\x2a"sv, decodeTIFF},
        {"II\x2b\0"sv, decodeTIFF}, {"MM\0\x2b"sv, decodeTIFF},
        {"\0\0\1\0"sv, decodeICO},  {"\0\0\2\0"sv, decodeICO},
        {"BM"sv, decodeBMP},        {"icns"sv, decodeICNS},
    };
    for (const auto& [bytes, decoder] : signatures) {
        if (file.matches(0, bytes)) {
            return decoder;
        }
    }
    if (file.matches(0, "RIFF") && file.matches(8, "WEBP")) {
        return decodeWebP;
    }
    if (isAVIF(file)) {
        return decodeAVIF;
    }
    return nullptr;
}

}  // namespace

FormatDecoder* formatOf(std::span<const std::uint8_t> file) { return decoderFor(ByteReader(file)); }

std::optional<DecodedImage> decodeImage(std::span<const std::uint8_t> file, PixelStore& pixels) {
    FormatDecoder* decoder = formatOf(file);
    if (decoder == nullptr) {
        return std::nullopt;
    }
    try {
        return decoder(file, pixels);
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

}  // namespace glintmark::decoder
