#include "linux/workspace/DesktopWorkspace.h"

#include <cstdint>
#include <utility>
#include <vector>

#include "linux/files/FileURI.h"
#include "linux/files/HeldFile.h"
#include "linux/workspace/DesktopLauncher.h"

namespace glintmark::platform {

namespace {

using std::chrono::milliseconds;

constexpr auto linkMimeType = "application/x-webloc";
constexpr auto folderMimeType = "inode/directory";

// The metadata daemon answers within a millisecond once it runs. The long timeout is for files
// without thumbnails: then the answer decides whether the icon is set at all.
constexpr milliseconds shortTimeout{2};
constexpr milliseconds longTimeout{500};

std::string wholeSeconds(const struct stat& status) {
    return std::to_string(status.st_mtim.tv_sec);
}

/// With microseconds, in the form that thumbnail services write if they use microseconds.
std::string exactSeconds(const struct stat& status) {
    constexpr long nanosecondsPerMicrosecond = 1000;
    constexpr std::size_t digits = 6;
    const std::string fraction = std::to_string(status.st_mtim.tv_nsec / nanosecondsPerMicrosecond);
    return wholeSeconds(status) + "." + std::string(digits - fraction.size(), '0') + fraction;
}

}  // namespace

struct DesktopWorkspace::EncodedIcon final : PreparedIcon {
    EncodedIcon(const BitmapImageRep& bitmap, DispatchQueue& helpers)
        : pictures(encodedPictures(bitmap, helpers)) {}

    IconPictures pictures;
    std::optional<std::string> name;  ///< In the store; absent when it could not be stored.
};

/// The file of one `setIcon`, with its status when the call began. Keeps no descriptor: while the
/// metadata daemon is slow, many files wait for its answers.
struct DesktopWorkspace::Target {
    std::string place;
    std::vector<std::string> uris;
    struct stat status;
    std::shared_ptr<const EncodedIcon> icon;
};

WorkspaceFolders WorkspaceFolders::ofUser() {
    return {g_get_home_dir(), g_get_user_data_dir(), g_get_user_cache_dir()};
}

DesktopWorkspace::DesktopWorkspace(SessionBus& bus, DispatchQueue& helpers,
                                   const WorkspaceFolders& folders)
    : DesktopWorkspace(bus, helpers, folders, &IconMetadata::writeThroughGIO) {}

DesktopWorkspace::DesktopWorkspace(SessionBus& bus, DispatchQueue& helpers,
                                   const WorkspaceFolders& folders,
                                   IconMetadata::Writer metadataWriter)
    : bus_(bus),
      helpers_(helpers),
      store_(folders.dataHome),
      applied_(folders.dataHome),
      thumbnails_(folders.cacheHome),
      windows_(bus),
      metadata_(std::move(metadataWriter)),
      sweeper_(IconSweep(store_, applied_, folders.home)) {}

std::shared_ptr<const PreparedIcon> DesktopWorkspace::prepareIcon(const Image& image) {
    const auto& bitmap = image.bitmap();
    if (!bitmap) {
        return nullptr;
    }
    auto icon = std::make_shared<EncodedIcon>(*bitmap, helpers_);
    const std::string& picture = icon->pictures.full;
    if (!store_.hasRoomFor(picture.size())) {
        sweeper_.makeRoomFor(picture.size());
    }
    icon->name = store_.put(picture);
    return icon;
}

bool DesktopWorkspace::setIcon(std::shared_ptr<const PreparedIcon> icon, const std::string& path,
                               const std::optional<FileIdentity>& read) {
    const auto file = HeldFile::at(path);
    if (icon == nullptr || !file || (read && !file->isWhatWasRead(*read))) {
        return false;
    }
    const std::string place = file->place();
    if (place.empty()) {
        return false;
    }
    auto encoded = std::static_pointer_cast<const EncodedIcon>(std::move(icon));
    const auto target = std::make_shared<const Target>(
        Target{place, fileURIs(path, place), file->status(), std::move(encoded)});
    const auto& name = target->icon->name;
    if (name) {
        writeIconName(file->procPath(), *name);
        applied_.add({*name, place});
    }
    const bool hasThumbnails = writeThumbnails(*target, wholeSeconds(target->status));
    if (!name) {
        if (hasThumbnails) {
            finish(*target);
        }
        return hasThumbnails;
    }
    const auto hasAttribute = std::make_shared<bool>(false);
    metadata_.set(place, glibFileURI(store_.pathOf(*name)),
                  hasThumbnails ? shortTimeout : longTimeout,
                  [this, target, hasAttribute](bool written) {
                      *hasAttribute = written;
                      finish(*target);
                  });
    return hasThumbnails || *hasAttribute;
}

bool DesktopWorkspace::writeThumbnails(const Target& target,
                                       const std::string& modificationTime) const {
    ThumbnailSubject subject;
    subject.modificationTime = modificationTime;
    subject.size = static_cast<std::uint64_t>(target.status.st_size);
    subject.mimeType = S_ISDIR(target.status.st_mode) ? folderMimeType : linkMimeType;
    bool complete = true;
    for (const auto& uri : target.uris) {
        subject.uri = uri;
        complete = thumbnails_.write(target.icon->pictures, subject) && complete;
    }
    return complete;
}

/// Refreshes open windows. If the file's time cannot be set, its thumbnails record the time with
/// its fraction.
void DesktopWorkspace::finish(const Target& target) {
    if (!WindowRefresh::dropTimeFraction(target.place, target.status) &&
        target.status.st_mtim.tv_nsec != 0) {
        writeThumbnails(target, exactSeconds(target.status));
    }
    windows_.signalChange(target.uris);
}

std::optional<std::string> DesktopWorkspace::storedPicture(const PreparedIcon& icon) const {
    const auto& name = static_cast<const EncodedIcon&>(icon).name;
    return name ? std::optional(store_.pathOf(*name)) : std::nullopt;
}

bool DesktopWorkspace::openFileViewer(const std::string& folder) {
    return showFolder(bus_.connection(), glibFileURI(folder));
}

bool DesktopWorkspace::open(const URL& url) {
    return openAddress(bus_.connection(), url.absoluteString());
}

}  // namespace glintmark::platform
