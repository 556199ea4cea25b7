#include "linux/workspace/ThumbnailCache.h"

#include <glib.h>

#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "base/graphics/ImageScaling.h"
#include "base/work/DispatchQueue.h"
#include "linux/files/FreeSpace.h"
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

/// The two smaller pictures of an icon. The first thread that calls `encode` makes them, and others
/// wait for it.
struct SmallPictures {
    explicit SmallPictures(BitmapImageRep full) : source(std::move(full)) {}

    void encode() {
        std::call_once(once, [this] {
            large = encodedPNG(scaled(*source, IconPictures::largeEdge, IconPictures::largeEdge));
            normal =
                encodedPNG(scaled(*source, IconPictures::normalEdge, IconPictures::normalEdge));
            source.reset();
        });
    }

    std::once_flag once;
    std::optional<BitmapImageRep> source;
    std::string large;
    std::string normal;
};

bool makeFolder(const std::string& folder) {
    return g_mkdir_with_parents(folder.c_str(), folderMode) == 0;
}

std::string fileName(const std::string& uri) {
    const GStringHandle digits(g_compute_checksum_for_string(G_CHECKSUM_MD5, uri.c_str(), -1));
    return std::string(digits.get()) + ".png";
}

}  // namespace

IconPictures encodedPictures(const BitmapImageRep& bitmap, DispatchQueue& helpers) {
    const auto small = std::make_shared<SmallPictures>(stretched(bitmap, IconPictures::fullEdge));
    const BitmapImageRep full = *small->source;
    helpers.async([small] { small->encode(); });
    std::string picture = encodedPNG(full);
    small->encode();
    return {std::move(picture), std::move(small->large), std::move(small->normal)};
}

bool ThumbnailCache::write(const IconPictures& pictures, const ThumbnailSubject& subject) const {
    if (!hasFreeSpace(folder_)) {
        return false;
    }
    const std::array<PNGText, 5> texts{{
        {"Thumb::URI", subject.uri},
        {"Thumb::MTime", subject.modificationTime},
        {"Thumb::Size", std::to_string(subject.size)},
        {"Thumb::Mimetype", subject.mimeType},
        {"Software", software},
    }};
    const std::string full = withTexts(pictures.full, texts);
    const std::string large = withTexts(pictures.large, texts);
    const std::string normal = withTexts(pictures.normal, texts);
    const std::string name = fileName(subject.uri);
    const auto pathIn = [&](const char* size) { return folder_ + "/" + size + "/" + name; };
    const auto put = [&](const char* size, const std::string& picture) {
        return makeFolder(folder_ + "/" + size) && writeFileAtomically(pathIn(size), picture);
    };
    // "xx-large" is at most 1024 pixels. Enlarging the picture would show nothing more, so both
    // sizes share one file where the file system allows it.
    const auto share = [&](const char* from, const char* to) {
        return makeFolder(folder_ + "/" + to) && linkFileAtomically(pathIn(from), pathIn(to));
    };
    return put("normal", normal) && put("large", large) && put("x-large", full) &&
           (share("x-large", "xx-large") || put("xx-large", full));
}

}  // namespace glintmark::platform
