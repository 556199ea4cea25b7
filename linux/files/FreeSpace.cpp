#include "linux/files/FreeSpace.h"

#include <cerrno>
#include <cstdint>

namespace glintmark::platform {

namespace {

constexpr std::uint64_t minimumFreePercent = 5;

}  // namespace

bool hasFreeSpace(const struct statvfs& status) {
    const std::uint64_t used = status.f_blocks - status.f_bfree;
    return status.f_bavail * 100 >= (used + status.f_bavail) * minimumFreePercent;
}

bool hasFreeSpace(const std::string& folder) {
    struct statvfs status {};
    if (statvfs(folder.c_str(), &status) == 0) {
        return hasFreeSpace(status);
    }
    const auto slash = folder.find_last_of('/');
    const bool hasParent = errno == ENOENT && slash != std::string::npos && slash > 0;
    return !hasParent || hasFreeSpace(folder.substr(0, slash));
}

}  // namespace glintmark::platform
