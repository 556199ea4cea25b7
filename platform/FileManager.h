#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileIdentity.h"

namespace glintmark::platform {

/// The file system. Paths are bytes, taken as they are. May be called from any thread.
class FileManager {
public:
    virtual ~FileManager() = default;

    /// The current user's home directory, absolute and without a trailing slash.
    virtual std::string homeDirectoryForCurrentUser() = 0;

    /// Calls `visit` with the name of each entry directly inside `directory`, in the system's
    /// order, without "." and "..". False when the directory cannot be listed (missing, not a
    /// directory, no permission); `visit` may have been called before. Allocates nothing per name.
    virtual bool contentsOfDirectory(const std::string& directory,
                                     const std::function<void(std::string_view name)>& visit) = 0;

    /// True if `path` leads to a file of any kind, directories included; false for a broken link.
    virtual bool fileExists(const std::string& path) = 0;

    /// The size of the regular file that `path` leads to, in bytes; 0 if there is none.
    virtual std::size_t fileSize(const std::string& path) = 0;

    /// The bytes of a regular file of any size. Absent when the file cannot be read (missing, no
    /// permission, an I/O error, not enough memory) or is not a regular file. Never blocks on a
    /// pipe. Of a file that grows meanwhile, what is added may be missing. Unless null, `identity`
    /// receives which file was read.
    virtual std::optional<std::string> contents(const std::string& path,
                                                FileIdentity* identity = nullptr) = 0;
};

}  // namespace glintmark::platform
