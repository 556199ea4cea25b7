#include "linux/files/HeldFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <string_view>
#include <utility>

namespace glintmark::platform {

namespace {

std::string procPathOf(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

bool isSameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

std::optional<HeldFile> HeldFile::at(const std::string& path) {
    FileDescriptor descriptor(::open(path.c_str(), O_PATH | O_CLOEXEC));
    struct stat status {};
    if (!descriptor || ::fstat(descriptor.get(), &status) != 0) {
        return std::nullopt;
    }
    return HeldFile(std::move(descriptor), status);
}

std::string HeldFile::procPath() const { return procPathOf(descriptor_.get()); }

std::string HeldFile::place() const { return placeOf(descriptor_.get()); }

bool HeldFile::isWhatWasRead(const FileIdentity& read) const {
    if (!S_ISREG(status_.st_mode) || read.place.empty() || place() != read.place) {
        return false;
    }
    // A second name may be a hard link that someone else made to a file in another folder.
    const bool isReplacement = !read.isThroughLink && status_.st_nlink <= 1;
    return isReplacement || (status_.st_dev == read.device && status_.st_ino == read.inode);
}

std::string placeOf(int descriptor) {
    std::array<char, PATH_MAX> target{};
    const auto length = ::readlink(procPathOf(descriptor).c_str(), target.data(), target.size());
    if (length <= 0 || target[0] != '/') {
        return "";
    }
    std::string place(target.data(), static_cast<std::size_t>(length));
    // The kernel marks the path of a deleted file only by a suffix, which is also a valid name.
    struct stat file {};
    struct stat there {};
    const bool isThere = ::fstat(descriptor, &file) == 0 && ::lstat(place.c_str(), &there) == 0 &&
                         isSameFile(file, there);
    return isThere ? place : "";
}

}  // namespace glintmark::platform
