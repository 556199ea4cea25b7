#include "linux/workspace/ThumbnailCache.h"

#include <glib.h>

#include "base/graphics/ImageScaling.h"
#include "linux/files/WholeFile.h"
#include "linux/glib/GLibHandles.h"
#include "linux/images/PNGWriter.h"

namespace glintmark::platform {

namespace {

constexpr int folderMode = 0700;
constexpr auto software = "Glintmark";

BitmapImageRep stretched(const BitmapImageRep& bitmap, int edge) {
    const bool fits = bitmap.pixelsWide() == edge && bitmap.pixelsHigh() == edge;
    return fits ? bitmap : scaled(bitmap, edge, edge);
}

std::string fileName(const std::string& uri) {
    const GStringHandle digits(g_compute_checksum_for_string(G_CHECKSUM_MD5, uri.c_str(), -1));
    return std::string(digits.get()) + ".png";
}

}  // namespace

IconPictures encodedPictures(const BitmapImageRep& bitmap) {
    const BitmapImageRep full = stretched(bitmap, IconPictures::fullEdge);
    return {encodedPNG(full),
            encodedPNG(scaled(full, IconPictures::largeEdge, IconPictures::largeEdge)),
            encodedPNG(scaled(full, IconPictures::normalEdge, IconPictures::normalEdge))};
}

bool ThumbnailCache::write(const IconPictures& pictures, const ThumbnailSubject& subject) const {
    const std::array<PNGText, 5> texts{{
        {"Thumb::URI", subject.uri},
        {"Thumb::MTime", subject.modificationTime},
        {"Thumb::Size", std::to_string(subject.size)},
        {"Thumb::Mimetype", subject.mimeType},
        {"Software", software},
    }};
    // "xx-large" is at most 1024 pixels. Enlarging the picture would show nothing more.
    const std::string full = withTexts(pictures.full, texts);
    const std::string large = withTexts(pictures.large, texts);
    const std::string normal = withTexts(pictures.normal, texts);
    const std::string name = fileName(subject.uri);
    const auto put = [&](const char* size, const std::string& picture) {
        const std::string folder = folder_ + "/" + size;
        return g_mkdir_with_parents(folder.c_str(), folderMode) == 0 &&
               writeFileAtomically(folder + "/" + name, picture);
    };
    return put("normal", normal) && put("large", large) && put("x-large", full) &&
           put("xx-large", full);
}

}  // namespace glintmark::platform
