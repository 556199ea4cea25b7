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

/// The names of the test images that begin with `prefix` and end with `suffix`, sorted.
std::vector<std::string> imageFileNames(const std::string& prefix = "",
                                        const std::string& suffix = "");

/// Without those that take much time or memory.
std::vector<std::string> smallImageFileNames();

/// `name` as the name of a parameter of a test, which has letters, digits and "_" only.
std::string testNameOf(std::string name);

/// Decodes `file` in this process, without a sandbox.
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

/// The largest difference between `bitmap` and `pattern` in any channel. The colours of a pixel
/// that is fully transparent in both do not count.
int maximumDifference(const BitmapImageRep& bitmap, const Pattern& pattern);

}  // namespace glintmark::decoder
