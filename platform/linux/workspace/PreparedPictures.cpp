#include "platform/linux/workspace/PreparedPictures.h"

#include <utility>

namespace glintmark::platform {

void PreparedPictures::add(const BitmapImageRep& bitmap) {
    Entry entry{bitmap, encodedPictures(bitmap)};
    const std::lock_guard lock(mutex_);
    entries_.insert_or_assign(bitmap.pixels().data(), std::move(entry));
}

IconPictures PreparedPictures::take(const BitmapImageRep& bitmap) {
    {
        const std::lock_guard lock(mutex_);
        if (auto entry = entries_.extract(bitmap.pixels().data())) {
            return std::move(entry.mapped().pictures);
        }
    }
    return encodedPictures(bitmap);
}

}  // namespace glintmark::platform
