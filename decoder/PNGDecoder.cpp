#include <png.h>

#include <csetjmp>
#include <cstring>
#include <vector>

#include "decoder/ByteReader.h"
#include "decoder/ColourProfile.h"
#include "decoder/FormatDecoders.h"
#include "decoder/ImageLimits.h"
#include "decoder/Orientation.h"
#include "decoder/PixelStore.h"

namespace glintmark::decoder {

namespace {

// The chunks that are read beside those of the pixels. All others are skipped, so the limits apply
// to these.
constexpr png_byte readChunks[] = "eXIf\0iCCP";
constexpr int readChunkCount = 2;
constexpr png_uint_32 maximumChunkCount = 256;
constexpr png_alloc_size_t maximumChunkSize = 1U << 20U;
constexpr png_uint_32 opaque = 0xFF;

struct PNGReader {
    explicit PNGReader(std::span<const std::uint8_t> file) : bytes(file) {}
    ~PNGReader() { png_destroy_read_struct(&png, &info, nullptr); }
    PNGReader(const PNGReader&) = delete;
    PNGReader& operator=(const PNGReader&) = delete;

    std::span<const std::uint8_t> bytes;
    png_structp png = nullptr;
    png_infop info = nullptr;
    bool hasAlpha = false;
};

void readBytes(png_structp png, png_bytep destination, std::size_t length) {
    auto& bytes = static_cast<PNGReader*>(png_get_io_ptr(png))->bytes;
    if (bytes.size() < length) {
        png_error(png, "the file ends early");
    }
    std::memcpy(destination, bytes.data(), length);
    bytes = bytes.subspan(length);
}

// The library requires a jump: an exception would unwind its C frames.
void onError(png_structp png, png_const_charp /*message*/) { png_longjmp(png, 1); }
void onWarning(png_structp /*png*/, png_const_charp /*message*/) {}

bool create(PNGReader& reader) {
    reader.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, onError, onWarning);
    if (reader.png == nullptr) {
        return false;
    }
    reader.info = png_create_info_struct(reader.png);
    return reader.info != nullptr;
}

// The functions that call setjmp own nothing, so a jump out of the library skips no destructor.

bool readHeader(PNGReader& reader) {
    if (setjmp(png_jmpbuf(reader.png)) != 0) {
        return false;
    }
    png_set_read_fn(reader.png, &reader, readBytes);
    png_set_user_limits(reader.png, maximumSide, maximumSide);
    png_set_chunk_cache_max(reader.png, maximumChunkCount);
    png_set_chunk_malloc_max(reader.png, maximumChunkSize);
    // -1 means all chunks that the pixels do not need, including compressed texts.
    png_set_keep_unknown_chunks(reader.png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
    png_set_keep_unknown_chunks(reader.png, PNG_HANDLE_CHUNK_AS_DEFAULT, readChunks,
                                readChunkCount);
    png_read_info(reader.png, reader.info);

    const bool alphaChannel =
        (png_get_color_type(reader.png, reader.info) & PNG_COLOR_MASK_ALPHA) != 0;
    reader.hasAlpha = alphaChannel || png_get_valid(reader.png, reader.info, PNG_INFO_tRNS) != 0;
    png_set_expand(reader.png);
    png_set_scale_16(reader.png);
    png_set_gray_to_rgb(reader.png);
    if (!reader.hasAlpha) {
        png_set_add_alpha(reader.png, opaque, PNG_FILLER_AFTER);
    }
    png_set_interlace_handling(reader.png);
    png_read_update_info(reader.png, reader.info);
    return true;
}

bool readRows(PNGReader& reader, png_bytepp rows) {
    if (setjmp(png_jmpbuf(reader.png)) != 0) {
        return false;
    }
    png_read_image(reader.png, rows);
    return true;
}

// Like browsers, this ignores Exif data after the pixels.
Orientation orientationOf(PNGReader& reader) {
    png_uint_32 length = 0;
    png_bytep exif = nullptr;
    if (png_get_eXIf_1(reader.png, reader.info, &length, &exif) == 0) {
        return {};
    }
    return orientationIn({exif, length});
}

void convertColours(PNGReader& reader, const Canvas& canvas) {
    png_charp name = nullptr;
    int compression = 0;
    png_bytep profile = nullptr;
    png_uint_32 length = 0;
    if (png_get_iCCP(reader.png, reader.info, &name, &compression, &profile, &length) != 0) {
        convertFromProfile({profile, length}, canvas);
    }
}

}  // namespace

std::optional<PNGHeader> pngHeader(std::span<const std::uint8_t> file) {
    // W3C Portable Network Graphics, section 11.2.1: channels by colour type.
    static constexpr int channels[] = {1, 0, 3, 1, 2, 0, 4};
    const ByteReader bytes(file);
    const std::size_t colourType = bytes.byte(25);
    if (!bytes.matches(0, pngSignature) || !bytes.matches(12, "IHDR") ||
        colourType >= std::size(channels)) {
        return std::nullopt;
    }
    return PNGHeader{bytes.big32(16), bytes.big32(20), bytes.byte(24) * channels[colourType]};
}

std::optional<DecodedImage> decodePNG(std::span<const std::uint8_t> file, PixelStore& pixels) {
    PNGReader reader(file);
    if (!create(reader) || !readHeader(reader)) {
        return std::nullopt;
    }
    const auto canvas = pixels.allocate(png_get_image_width(reader.png, reader.info),
                                        png_get_image_height(reader.png, reader.info));
    if (!canvas || png_get_rowbytes(reader.png, reader.info) != canvas->bytesPerRow()) {
        return std::nullopt;
    }

    std::vector<png_bytep> rows;
    rows.reserve(static_cast<std::size_t>(canvas->height()));
    for (int y = 0; y < canvas->height(); ++y) {
        rows.push_back(canvas->row(y));
    }
    if (!readRows(reader, rows.data())) {
        return std::nullopt;
    }
    convertColours(reader, *canvas);
    return upright(*canvas, orientationOf(reader), reader.hasAlpha);
}

}  // namespace glintmark::decoder
