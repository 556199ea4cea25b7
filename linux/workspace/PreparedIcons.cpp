#include "linux/workspace/PreparedIcons.h"

#include <utility>

namespace glintmark::platform {

PreparedIcon preparedIcon(const BitmapImageRep& bitmap, IconStore& store) {
    PreparedIcon icon;
    icon.pictures = encodedPictures(bitmap);
    icon.name = store.put(icon.pictures.full);
    return icon;
}

void PreparedIcons::add(const BitmapImageRep& bitmap, PreparedIcon icon) {
    const std::lock_guard lock(mutex_);
    entries_.insert_or_assign(bitmap.pixels().data(), Entry{bitmap, std::move(icon)});
}

std::optional<PreparedIcon> PreparedIcons::take(const BitmapImageRep& bitmap) {
    const std::lock_guard lock(mutex_);
    auto entry = entries_.extract(bitmap.pixels().data());
    return entry ? std::optional(std::move(entry.mapped().icon)) : std::nullopt;
}

}  // namespace glintmark::platform
