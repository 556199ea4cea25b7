#include "linux/workspace/IconThumbnail.h"

#include <png.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/graphics/BitmapImageRep.h"
#include "base/graphics/ImageScaling.h"
#include "linux/files/FileURI.h"
#include "linux/files/WholeFile.h"
#include "linux/images/PNGWriter.h"
#include "linux/workspace/IconStore.h"
#include "linux/workspace/ThumbnailCache.h"

namespace glintmark::platform {

namespace {

std::optional<BitmapImageRep> decodedPNG(const std::string& file) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_memory(&image, file.data(), file.size()) == 0) {
        return std::nullopt;
    }
    if (image.width > IconPictures::fullEdge || image.height > IconPictures::fullEdge) {
        png_image_free(&image);
        return std::nullopt;
    }
    image.format = PNG_FORMAT_RGBA;
    std::vector<std::uint8_t> pixels(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) == 0) {
        return std::nullopt;
    }
    return BitmapImageRep(static_cast<int>(image.width), static_cast<int>(image.height), true,
                          std::move(pixels));
}

/// `bitmap`, scaled down in its proportions if it is larger than `edge`.
BitmapImageRep fitted(const BitmapImageRep& bitmap, int edge) {
    const int longest = std::max(bitmap.pixelsWide(), bitmap.pixelsHigh());
    if (longest <= edge) {
        return bitmap;
    }
    return scaled(bitmap, std::max(bitmap.pixelsWide() * edge / longest, 1),
                  std::max(bitmap.pixelsHigh() * edge / longest, 1));
}

}  // namespace

bool writeIconThumbnail(const IconStore& store, const std::string& location,
                        const std::string& output, int edge) {
    const auto name = readIconName(pathOfLocation(location));
    if (!name || edge < 1) {
        return false;
    }
    const auto bitmap = decodedPNG(readFile(store.pathOf(*name)));
    return bitmap && writeFileInPlace(output, encodedPNG(fitted(*bitmap, edge)));
}

}  // namespace glintmark::platform
