#include "tests/doubles/FakeImageDecoder.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <sstream>
#include <vector>

#include "base/graphics/Image.h"

namespace glintmark::doubles {

namespace {

BitmapImageRep bitmapOf(int width, int height, bool isOpaque) {
    const auto bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                       BitmapImageRep::bytesPerPixel;
    std::vector<std::uint8_t> pixels(bytes, isOpaque ? 0xff : 0x00);
    return {width, height, !isOpaque, std::move(pixels)};
}

/// The text up to `end` as a number. Absent if it is not one.
std::optional<double> numberUpTo(std::istream& text, char end) {
    std::string digits;
    std::getline(text, digits, end);
    std::size_t used = 0;
    try {
        const double number = std::stod(digits, &used);
        return used == digits.size() ? std::optional(number) : std::nullopt;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

void FakeImageDecoder::decode(std::string data, const std::shared_ptr<platform::ImageBatch>&,
                              Completion completion) {
    ++decodes_;
    completion(imageOf(data));
}

std::shared_ptr<const Image> FakeImageDecoder::imageOf(const std::string& data) {
    constexpr std::string_view magic = "image ";
    if (!data.starts_with(magic)) {
        return nullptr;
    }
    std::istringstream text(data.substr(magic.size()));
    const auto width = numberUpTo(text, 'x');
    const auto height = numberUpTo(text, ' ');
    std::string kind;
    std::getline(text, kind);
    if (!width || !height) {
        return nullptr;
    }
    if (kind.empty()) {
        return std::make_shared<const Image>(Size{*width, *height});
    }
    if (kind != "opaque" && kind != "transparent") {
        return nullptr;
    }
    return std::make_shared<const Image>(
        bitmapOf(static_cast<int>(*width), static_cast<int>(*height), kind == "opaque"));
}

}  // namespace glintmark::doubles
