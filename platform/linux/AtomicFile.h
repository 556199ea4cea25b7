#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace glintmark::platform {

enum class Durability {
    cache,  ///< A crash of the system may lose the new file; the old one is then still whole.
    disk,   ///< On the disk, name included, once the call has returned.
};

/// Puts a file holding `bytes` in place of `path` in one step: a reader sees the old or the new
/// file, whole, also after a failure. Writes beside it, then renames. False when nothing changed.
bool writeFileAtomically(const std::string& path, std::string_view bytes, mode_t mode,
                         Durability durability);

/// Makes `directory` and the missing ones above it, each with `mode`. True when it is there.
bool makeDirectories(const std::string& directory, mode_t mode);

}  // namespace glintmark::platform
