#include "linux/images/PNGWriter.h"

#include <png.h>
#include <zlib.h>

#include <cstdint>

#include "base/system/FatalError.h"

namespace glintmark::platform {

namespace {

// Run-length coding of horizontal differences: 512 x 512 pixels of noise take 16 ms; the fastest
// search for repetitions takes 45 ms. Files of drawn icons are at most twice as large as with that
// search.
constexpr int compressionLevel = 1;
constexpr int compressionStrategy = Z_RLE;
constexpr int filter = PNG_FILTER_SUB;
constexpr std::size_t compressionBuffer = std::size_t{64} * 1024;

constexpr std::size_t textsOffset = 8 + 25;  // after the signature and the IHDR chunk

void append(png_structp writer, png_bytep bytes, std::size_t count) {
    static_cast<std::string*>(png_get_io_ptr(writer))
        ->append(reinterpret_cast<const char*>(bytes), count);
}

[[noreturn]] void fail(png_structp /*writer*/, png_const_charp message) {
    // Writing to memory fails only if the caller made an error or no memory is left.
    fatalError(message);
}

void ignoreWarning(png_structp /*writer*/, png_const_charp /*message*/) {}

void appendNumber(std::string& bytes, std::uint32_t number) {
    for (const unsigned shift : {24U, 16U, 8U, 0U}) {
        bytes += static_cast<char>(number >> shift & 0xFFU);
    }
}

std::string textChunk(const PNGText& text) {
    std::string typeAndData = "tEXt";
    typeAndData.append(text.key).append(1, '\0').append(text.value);
    std::string chunk;
    appendNumber(chunk, static_cast<std::uint32_t>(typeAndData.size() - 4));
    chunk += typeAndData;
    appendNumber(chunk,
                 static_cast<std::uint32_t>(crc32_z(
                     0, reinterpret_cast<const Bytef*>(typeAndData.data()), typeAndData.size())));
    return chunk;
}

}  // namespace

std::string encodedPNG(const BitmapImageRep& bitmap) {
    std::string file;
    png_structp writer =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, &fail, &ignoreWarning);
    png_infop info = png_create_info_struct(writer);
    png_set_write_fn(writer, &file, &append, nullptr);
    png_set_IHDR(writer, info, static_cast<png_uint_32>(bitmap.pixelsWide()),
                 static_cast<png_uint_32>(bitmap.pixelsHigh()), 8, PNG_COLOR_TYPE_RGBA,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(writer, compressionLevel);
    png_set_compression_strategy(writer, compressionStrategy);
    png_set_compression_buffer_size(writer, compressionBuffer);
    png_set_filter(writer, PNG_FILTER_TYPE_BASE, filter);
    png_write_info(writer, info);
    const auto rowBytes =
        static_cast<std::size_t>(bitmap.pixelsWide()) * BitmapImageRep::bytesPerPixel;
    const auto pixels = bitmap.pixels();
    for (std::size_t offset = 0; offset < pixels.size(); offset += rowBytes) {
        png_write_row(writer, pixels.subspan(offset, rowBytes).data());
    }
    png_write_end(writer, nullptr);
    png_destroy_write_struct(&writer, &info);
    return file;
}

std::string withTexts(std::string_view png, std::span<const PNGText> texts) {
    std::string file(png.substr(0, textsOffset));
    for (const auto& text : texts) {
        file += textChunk(text);
    }
    return file.append(png.substr(textsOffset));
}

}  // namespace glintmark::platform
