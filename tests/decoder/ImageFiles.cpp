#include "tests/decoder/ImageFiles.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "decoder/DecodeImage.h"
#include "decoder/HeapPixels.h"

namespace glintmark::decoder {

namespace {

const std::string folder = GLINTMARK_TEST_DATA "/images/";

}  // namespace

Bytes imageFile(const std::string& name) {
    std::ifstream file(folder + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> imageFileNames() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
}

std::optional<BitmapImageRep> decoded(const Bytes& file) {
    HeapPixels pixels;
    const auto image = decodeImage(file, pixels);
    if (!image) {
        return std::nullopt;
    }
    return BitmapImageRep(image->width, image->height, image->hasAlpha, pixels.take());
}

int greatestDifference(const BitmapImageRep& bitmap, const Pattern& pattern) {
    int greatest = 0;
    std::size_t at = 0;
    for (int y = 0; y < bitmap.pixelsHigh(); ++y) {
        for (int x = 0; x < bitmap.pixelsWide(); ++x, at += 4) {
            const std::uint8_t* pixel = &bitmap.pixels()[at];
            const Colour expected = pattern(x, y);
            if (expected.alpha == 0 && pixel[3] == 0) {
                continue;
            }
            greatest = std::max(
                {greatest, std::abs(expected.red - pixel[0]), std::abs(expected.green - pixel[1]),
                 std::abs(expected.blue - pixel[2]), std::abs(expected.alpha - pixel[3])});
        }
    }
    return greatest;
}

}  // namespace glintmark::decoder
