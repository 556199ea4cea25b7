#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace glintmark::platform {

enum class Durability {
    cache,  ///< A crash of the system may lose the new file. The old one is then still whole.
    disk,   ///< The file and its name are on the disk when the call returns.
};

/// The suffix of unfinished files. A crash may leave them beside the finished ones.
inline constexpr std::string_view unfinishedSuffix = ".part";

/// Writes all of `bytes` into an open file. False on failure, with the reason in `errno`.
bool writeWhole(int descriptor, std::string_view bytes);

/// Replaces the file at `path` with one that holds `bytes`, in one step: a reader sees the old or
/// the new file, whole, even after a failure. Writes a file beside it, then renames that. False on
/// failure, with the reason in `errno`; the old file is then unchanged.
bool writeFileAtomically(const std::string& path, std::string_view bytes, mode_t mode = 0600,
                         Durability durability = Durability::cache);

/// Makes `path` a second name of the file at `existing` (a hard link), in place of any file there,
/// in one step. False on failure, for example if the file system has no hard links or the two paths
/// are on different ones; `path` is then unchanged.
bool linkFileAtomically(const std::string& existing, const std::string& path);

/// The path of the file that the symbolic links at `path`, which has a "/" in it, lead to. `path`
/// itself if no link is there. The file need not exist. Absent, with the reason in `errno`, if the
/// links lead nowhere: in a circle, or through what is no directory.
std::optional<std::string> fileBehindLinks(std::string path);

/// Writes `bytes` into the file at `path` without replacing it: a process that has the file open
/// reads the new bytes. Creates a missing file. A failure leaves the file empty or incomplete.
bool writeFileInPlace(const std::string& path, std::string_view bytes, mode_t mode = 0600);

/// The whole file; empty if it cannot be read.
std::string readFile(const std::string& path);

/// Reads an open file to its end or up to `maximumBytes`. Absent on an error or without
/// memory. `expectedBytes` is an
/// estimate of its size; a better estimate saves reads.
std::optional<std::string> readToEnd(int descriptor, std::size_t expectedBytes,
                                     std::size_t maximumBytes = std::string::npos);

/// Makes `directory` and the missing directories above it, each with `mode`. True if it exists
/// afterwards.
bool makeDirectories(const std::string& directory, mode_t mode);

}  // namespace glintmark::platform
