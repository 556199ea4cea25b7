#include "icon/IconApplier.h"

#include <utility>

#include "base/graphics/BitmapImageRep.h"
#include "base/graphics/ImageScaling.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/Workspace.h"

namespace glintmark {

using platform::services;

namespace {

constexpr Size iconSize{512, 512};

}  // namespace

std::shared_ptr<const platform::PreparedIcon> IconApplier::prepared(
    const std::shared_ptr<const Image>& image) {
    const auto icon = resizeImage(*image, iconSize);
    return icon ? services().workspace.prepareIcon(*icon) : nullptr;
}

void IconApplier::apply(std::shared_ptr<const platform::PreparedIcon> icon, const std::string& path,
                        const std::optional<platform::FileIdentity>& read) {
    if (services().workspace.setIcon(std::move(icon), path, read)) {
        services().log.write("Glintmark: アイコン適用成功 → " + path);
    } else {
        services().log.write("Glintmark: アイコン適用失敗 → " + path);
    }
}

void IconApplier::apply(const std::shared_ptr<const Image>& image, const std::string& path) {
    apply(prepared(image), path);
}

std::optional<Image> IconApplier::resizeImage(const Image& image, Size size) {
    const auto& bitmap = image.bitmap();
    if (!bitmap) {
        return std::nullopt;
    }
    return Image(scaled(*bitmap, static_cast<int>(size.width), static_cast<int>(size.height)));
}

}  // namespace glintmark
