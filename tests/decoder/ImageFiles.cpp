#include "tests/decoder/ImageFiles.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>

#include "decoder/DecodeImage.h"
#include "decoder/HeapPixels.h"
#include "tests/support/WholeFile.h"

namespace glintmark::decoder {

namespace {

const std::string folder = GLINTMARK_TEST_DATA "/images/";

}  // namespace

Bytes imageFile(const std::string& name) {
    const std::string bytes = test::wholeFile(folder + name);
    return {bytes.begin(), bytes.end()};
}

std::vector<std::string> imageFileNames(const std::string& prefix, const std::string& suffix) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::string name = entry.path().filename();
        if (name.starts_with(prefix) && name.ends_with(suffix)) {
            names.push_back(std::move(name));
        }
    }
    std::ranges::sort(names);
    return names;
}

std::vector<std::string> smallImageFileNames() {
    std::vector<std::string> names = imageFileNames();
    std::erase_if(names, [](const std::string& name) {
        return name.starts_with("bomb-") || name.starts_with("large-") || name.starts_with("long-");
    });
    return names;
}

std::string testNameOf(std::string name) {
    std::ranges::replace_if(
        name, [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

std::optional<BitmapImageRep> decoded(const Bytes& file) {
    HeapPixels pixels;
    const auto image = decodeImage(file, pixels);
    if (!image) {
        return std::nullopt;
    }
    return BitmapImageRep(image->width, image->height, image->hasAlpha, pixels.take());
}

int maximumDifference(const BitmapImageRep& bitmap, const Pattern& pattern) {
    int maximum = 0;
    std::size_t at = 0;
    for (int y = 0; y < bitmap.pixelsHigh(); ++y) {
        for (int x = 0; x < bitmap.pixelsWide(); ++x, at += 4) {
            const std::uint8_t* pixel = &bitmap.pixels()[at];
            const Colour expected = pattern(x, y);
            if (expected.alpha == 0 && pixel[3] == 0) {
                continue;
            }
            maximum = std::max(
                {maximum, std::abs(expected.red - pixel[0]), std::abs(expected.green - pixel[1]),
                 std::abs(expected.blue - pixel[2]), std::abs(expected.alpha - pixel[3])});
        }
    }
    return maximum;
}

}  // namespace glintmark::decoder
