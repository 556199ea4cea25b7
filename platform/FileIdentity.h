#pragma once

#include <cstdint>
#include <string>

namespace glintmark::platform {

/// Tells which file was read. A path may lead to another file later, above all in a folder that
/// others can write.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;     ///< Within the device.
    std::string place;           ///< Absolute path without symbolic links; empty if unknown.
    bool isThroughLink = false;  ///< The last component of the path was a symbolic link.

    bool operator==(const FileIdentity&) const = default;
};

}  // namespace glintmark::platform
