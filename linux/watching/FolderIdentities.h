#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace glintmark::platform {

using FolderIdentity = std::array<std::uint64_t, 3>;  // device and inode; zeros: nothing is there

/// Which directories `folders` lead to now. Absent for those whose file system does not answer at
/// once; nobody waits longer for them.
std::vector<std::optional<FolderIdentity>> folderIdentities(
    const std::vector<std::string>& folders);

}  // namespace glintmark::platform
