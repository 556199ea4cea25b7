#pragma once

#include <string>
#include <string_view>

namespace glintmark::platform {

/// Puts a file of these bytes at `path` in one step: written beside it, then renamed over what is
/// there. Mode 0600. Not flushed to the disk, so after a power cut the file may be short; for what
/// can be made again. False, with nothing left behind, when the system refuses.
bool replaceFile(const std::string& path, std::string_view bytes);

/// Ends the names of the files that `replaceFile` writes before it renames them.
inline constexpr std::string_view unfinishedSuffix = ".part";

/// The whole file; empty when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace glintmark::platform
