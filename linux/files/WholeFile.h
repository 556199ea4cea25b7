#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace glintmark::platform {

enum class Durability {
    cache,  ///< A crash of the system may lose the new file; the old one is then still whole.
    disk,   ///< On the disk, name included, once the call has returned.
};

/// Ends the names of unfinished files, which a crash may leave beside the finished ones.
inline constexpr std::string_view unfinishedSuffix = ".part";

/// Puts a file holding `bytes` in place of `path` in one step: a reader sees the old or the new
/// file, whole, also after a failure. Writes beside it, then renames. False when nothing changed.
bool writeFileAtomically(const std::string& path, std::string_view bytes, mode_t mode = 0600,
                         Durability durability = Durability::cache);

/// Fills the file at `path`, made when absent, without replacing it: who has it open reads the new
/// bytes. A failure leaves it empty or incomplete.
bool writeFileInPlace(const std::string& path, std::string_view bytes, mode_t mode = 0600);

/// The whole file; empty when it cannot be read.
std::string readFile(const std::string& path);

/// Makes `directory` and the missing ones above it, each with `mode`. True when it is there.
bool makeDirectories(const std::string& directory, mode_t mode);

}  // namespace glintmark::platform
