#include "icon/IconApplier.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/graphics/BitmapImageRep.h"
#include "base/graphics/ImageScaling.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/Workspace.h"

namespace glintmark {

using platform::services;

namespace {

constexpr Size iconSize{512, 512};

BitmapImageRep transparentCanvas(int width, int height) {
    const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    return {width, height, true, std::vector<std::uint8_t>(pixels * BitmapImageRep::bytesPerPixel)};
}

}  // namespace

std::shared_ptr<const platform::PreparedIcon> IconApplier::prepared(
    const std::shared_ptr<const Image>& image) {
    return services().workspace.prepareIcon(resizeImage(*image, iconSize));
}

void IconApplier::apply(std::shared_ptr<const platform::PreparedIcon> icon,
                        const std::string& path) {
    if (services().workspace.setIcon(std::move(icon), path)) {
        services().log.write("Glintmark: アイコン適用成功 → " + path);
    } else {
        services().log.write("Glintmark: アイコン適用失敗 → " + path);
    }
}

void IconApplier::apply(const std::shared_ptr<const Image>& image, const std::string& path) {
    apply(prepared(image), path);
}

Image IconApplier::resizeImage(const Image& image, Size size) {
    const int width = static_cast<int>(size.width);
    const int height = static_cast<int>(size.height);
    const auto bitmap = image.bitmap();
    if (!bitmap || bitmap->pixelsWide() == 0 || bitmap->pixelsHigh() == 0) {
        return Image(transparentCanvas(width, height));
    }
    return Image(scaled(*bitmap, width, height));
}

}  // namespace glintmark
