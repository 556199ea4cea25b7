#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/graphics/BitmapImageRep.h"

namespace glintmark::decoder {

using Bytes = std::vector<std::uint8_t>;

/// The file `name` of the test images.
Bytes imageFile(const std::string& name);
std::vector<std::string> imageFileNames();

/// `file` decoded here, without a sandbox.
std::optional<BitmapImageRep> decoded(const Bytes& file);
inline std::optional<BitmapImageRep> decoded(const std::string& name) {
    return decoded(imageFile(name));
}

struct Colour {
    int red = 0;
    int green = 0;
    int blue = 0;
    int alpha = 255;
};

using Pattern = std::function<Colour(int x, int y)>;

/// The greatest difference between `bitmap` and `pattern` in any channel. Where both are fully
/// transparent the colour does not count.
int greatestDifference(const BitmapImageRep& bitmap, const Pattern& pattern);

}  // namespace glintmark::decoder
