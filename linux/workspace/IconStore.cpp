#include "linux/workspace/IconStore.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <tuple>
#include <utility>

#include "linux/files/FreeSpace.h"
#include "linux/files/WholeFile.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t nameLength = 64;
constexpr char attribute[] = "user.glintmark.icon";
constexpr std::string_view suffix = ".png";
constexpr int folderMode = 0700;
constexpr std::time_t day = 86'400;  // seconds

std::string nameOf(std::string_view png) {
    const GStringHandle digits(g_compute_checksum_for_data(
        G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(png.data()), png.size()));
    return digits.get();
}

/// True if the picture is stored whole. After a power cut its file may be short.
bool isStored(const std::string& path, std::size_t size) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           static_cast<std::size_t>(status.st_size) == size;
}

std::vector<std::string> entriesOf(const std::string& folder) {
    std::vector<std::string> names;
    const std::unique_ptr<GDir, decltype(&g_dir_close)> directory(
        g_dir_open(folder.c_str(), 0, nullptr), &g_dir_close);
    while (const char* name = directory ? g_dir_read_name(directory.get()) : nullptr) {
        names.emplace_back(name);
    }
    return names;
}

bool isEarlier(const struct timespec& one, const struct timespec& other) {
    return std::tie(one.tv_sec, one.tv_nsec) < std::tie(other.tv_sec, other.tv_nsec);
}

/// The later of the times of the last read and write. File systems update the time of the last read
/// about once a day. A file whose status cannot be read counts as in use.
struct timespec lastUse(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return {std::numeric_limits<std::time_t>::max(), 0};
    }
    return std::max(status.st_atim, status.st_mtim, &isEarlier);
}

/// What the file takes on the disk. Its blocks would tell only after the system has written them.
std::uint64_t bytesOnDisk(std::uint64_t size) {
    constexpr std::uint64_t blockBytes = 4096;
    return (size + blockBytes - 1) / blockBytes * blockBytes;
}

/// Zero for a missing file.
std::uint64_t bytesOnDisk(const std::string& path) {
    struct stat status {};
    const bool isThere = stat(path.c_str(), &status) == 0;
    return isThere ? bytesOnDisk(static_cast<std::uint64_t>(status.st_size)) : 0;
}

}  // namespace

IconStore::IconStore(const std::string& dataHome, std::uint64_t maximumBytes)
    : folder_(dataHome + "/glintmark/icons"), maximumBytes_(maximumBytes) {}

std::optional<std::string> IconStore::put(std::string_view png) {
    if (!hasFreeSpace(folder_)) {
        return std::nullopt;
    }
    std::string name = nameOf(png);
    const std::string path = pathOf(name);
    const std::scoped_lock lock(mutex_);
    if (isStored(path, png.size())) {
        const struct timespec usedNow[2] = {{0, UTIME_NOW}, {0, UTIME_OMIT}};
        utimensat(AT_FDCWD, path.c_str(), usedNow, 0);
        return name;
    }
    const std::uint64_t others = bytesStored() - std::min(bytesStored(), bytesOnDisk(path));
    const std::uint64_t bytes = others + bytesOnDisk(png.size());
    if (bytes > maximumBytes_ || g_mkdir_with_parents(folder_.c_str(), folderMode) != 0 ||
        !writeFileAtomically(path, png)) {
        return std::nullopt;
    }
    bytes_ = bytes;
    return name;
}

bool IconStore::hasRoomFor(std::uint64_t bytes) {
    const std::scoped_lock lock(mutex_);
    return bytesStored() + bytesOnDisk(bytes) <= maximumBytes_;
}

std::uint64_t IconStore::bytesStored() {
    if (!bytes_) {
        bytes_ = 0;
        for (const auto& entry : entriesOf(folder_)) {
            *bytes_ += bytesOnDisk(folder_ + "/" + entry);
        }
    }
    return *bytes_;
}

void IconStore::removeFile(const std::string& path) {
    const std::uint64_t bytes = bytesOnDisk(path);
    if (unlink(path.c_str()) == 0 && bytes_) {
        *bytes_ -= std::min(*bytes_, bytes);
    }
}

std::string IconStore::pathOf(std::string_view name) const {
    return folder_ + "/" + std::string(name).append(suffix);
}

bool IconStore::isName(std::string_view text) {
    return text.size() == nameLength && std::all_of(text.begin(), text.end(), [](char digit) {
               return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
           });
}

std::vector<IconStore::Picture> IconStore::byLastUse() const {
    std::vector<Picture> pictures;
    for (const auto& entry : entriesOf(folder_)) {
        std::string name = entry.substr(0, nameLength);
        if (isName(name) && entry == name + std::string(suffix)) {
            pictures.push_back({std::move(name), lastUse(folder_ + "/" + entry)});
        }
    }
    std::sort(pictures.begin(), pictures.end(), [](const Picture& one, const Picture& other) {
        return isEarlier(one.lastUse, other.lastUse);
    });
    return pictures;
}

std::set<std::string> IconStore::unusedSince(std::time_t time) const {
    std::set<std::string> names;
    for (auto& picture : byLastUse()) {
        if (picture.lastUse.tv_sec < time) {
            names.insert(std::move(picture.name));
        }
    }
    return names;
}

void IconStore::removeUnused(const std::string& name, std::time_t time) {
    const std::scoped_lock lock(mutex_);
    const std::string path = pathOf(name);
    if (lastUse(path).tv_sec < time) {
        removeFile(path);
    }
}

void IconStore::removeUnfinished(std::time_t now) {
    const std::scoped_lock lock(mutex_);
    for (const auto& entry : entriesOf(folder_)) {
        const std::string path = folder_ + "/" + entry;
        if (entry.ends_with(unfinishedSuffix) && lastUse(path).tv_sec < now - day) {
            removeFile(path);
        }
    }
    bytes_.reset();  // another program may have changed the folder since the files were counted
}

bool writeIconName(const std::string& path, const std::string& name) {
    return setxattr(path.c_str(), attribute, name.data(), name.size(), 0) == 0;
}

std::optional<std::string> readIconName(const std::string& path) {
    std::array<char, nameLength> value{};  // a longer value does not fit and is not a name
    const ssize_t length = getxattr(path.c_str(), attribute, value.data(), value.size());
    if (length <= 0) {
        return std::nullopt;
    }
    std::string name(value.data(), static_cast<std::size_t>(length));
    return IconStore::isName(name) ? std::optional(std::move(name)) : std::nullopt;
}

}  // namespace glintmark::platform
