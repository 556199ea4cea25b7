#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "base/graphics/BitmapImageRep.h"

namespace glintmark::platform {

/// The contents of a PNG file, as libpng reads them.
struct ReadPNG {
    int width = 0;  ///< Zero if the file is not a valid PNG file.
    int height = 0;
    std::vector<std::uint8_t> pixels;  ///< RGBA, not premultiplied.
    std::map<std::string, std::string> texts;
};

ReadPNG readPNG(const std::string& bytes);

/// A square of one colour.
BitmapImageRep square(int edge, std::uint8_t red, std::uint8_t green, std::uint8_t blue,
                      std::uint8_t alpha = 255);

}  // namespace glintmark::platform
