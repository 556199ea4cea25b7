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
#include <vector>

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

/// The later of the times of the last read and write. File systems update the time of the last read
/// about once a day. A file whose status cannot be read counts as in use.
std::time_t lastUse(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return std::numeric_limits<std::time_t>::max();
    }
    return std::max(status.st_atim.tv_sec, status.st_mtim.tv_sec);
}

}  // namespace

IconStore::IconStore(const std::string& dataHome) : folder_(dataHome + "/glintmark/icons") {}

std::optional<std::string> IconStore::put(std::string_view png) {
    std::string name = nameOf(png);
    const std::string path = pathOf(name);
    const std::scoped_lock lock(mutex_);
    if (isStored(path, png.size())) {
        const struct timespec usedNow[2] = {{0, UTIME_NOW}, {0, UTIME_OMIT}};
        utimensat(AT_FDCWD, path.c_str(), usedNow, 0);
        return name;
    }
    if (g_mkdir_with_parents(folder_.c_str(), folderMode) != 0 || !writeFileAtomically(path, png)) {
        return std::nullopt;
    }
    return name;
}

std::string IconStore::pathOf(std::string_view name) const {
    return folder_ + "/" + std::string(name).append(suffix);
}

bool IconStore::isName(std::string_view text) {
    return text.size() == nameLength && std::all_of(text.begin(), text.end(), [](char digit) {
               return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
           });
}

std::set<std::string> IconStore::unusedSince(std::time_t time) const {
    std::set<std::string> names;
    for (const auto& entry : entriesOf(folder_)) {
        const std::string_view name = std::string_view(entry).substr(0, nameLength);
        if (isName(name) && entry == std::string(name) + std::string(suffix) &&
            lastUse(folder_ + "/" + entry) < time) {
            names.emplace(name);
        }
    }
    return names;
}

void IconStore::removeUnused(const std::string& name, std::time_t time) {
    const std::scoped_lock lock(mutex_);
    const std::string path = pathOf(name);
    if (lastUse(path) < time) {
        unlink(path.c_str());
    }
}

void IconStore::removeUnfinished(std::time_t now) {
    for (const auto& entry : entriesOf(folder_)) {
        const std::string path = folder_ + "/" + entry;
        if (entry.ends_with(unfinishedSuffix) && lastUse(path) < now - day) {
            unlink(path.c_str());
        }
    }
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
