#include "tests/linux/PNGReading.h"

#include <png.h>

#include <cstring>

namespace glintmark::platform {

namespace {

struct Source {
    const std::string& bytes;
    std::size_t next = 0;
};

void take(png_structp reader, png_bytep target, std::size_t count) {
    auto* source = static_cast<Source*>(png_get_io_ptr(reader));
    if (source->bytes.size() - source->next < count) {
        png_error(reader, "short");
    }
    std::memcpy(target, source->bytes.data() + source->next, count);
    source->next += count;
}

}  // namespace

ReadPNG readPNG(const std::string& bytes) {
    ReadPNG result;
    Source source{bytes};
    png_structp reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(reader);
    std::vector<png_bytep> rows;
    if (setjmp(png_jmpbuf(reader)) == 0) {  // NOLINT(cert-err52-cpp): libpng's error handling
        png_set_read_fn(reader, &source, &take);
        png_set_crc_action(reader, PNG_CRC_ERROR_QUIT, PNG_CRC_ERROR_QUIT);
        png_read_info(reader, info);
        const auto width = png_get_image_width(reader, info);
        const auto height = png_get_image_height(reader, info);
        const auto rowBytes = png_get_rowbytes(reader, info);
        result.pixels.resize(rowBytes * height);
        for (std::size_t y = 0; y < height; ++y) {
            rows.push_back(result.pixels.data() + y * rowBytes);
        }
        png_read_image(reader, rows.data());
        png_read_end(reader, nullptr);
        png_textp texts = nullptr;
        const int count = png_get_text(reader, info, &texts, nullptr);
        for (int i = 0; i < count; ++i) {
            result.texts[texts[i].key] = texts[i].text;
        }
        result.width = static_cast<int>(width);
        result.height = static_cast<int>(height);
    }
    png_destroy_read_struct(&reader, &info, nullptr);
    return result;
}

BitmapImageRep square(int edge, std::uint8_t red, std::uint8_t green, std::uint8_t blue,
                      std::uint8_t alpha) {
    std::vector<std::uint8_t> pixels;
    for (int i = 0; i < edge * edge; ++i) {
        pixels.insert(pixels.end(), {red, green, blue, alpha});
    }
    return {edge, edge, true, std::move(pixels)};
}

}  // namespace glintmark::platform
