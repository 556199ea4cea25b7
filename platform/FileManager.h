#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace glintmark::platform {

/// The file system. Paths are bytes, taken as they are. May be called from any thread.
class FileManager {
public:
    virtual ~FileManager() = default;

    /// The current user's home directory, absolute and without a trailing slash.
    virtual std::string homeDirectoryForCurrentUser() = 0;

    /// Shows the name of each entry directly inside `directory` to `visit`, in the system's order,
    /// without "." and "..". False when the directory cannot be listed (missing, not a directory,
    /// no permission); `visit` may then have seen some names. Costs no allocation per name.
    virtual bool contentsOfDirectory(const std::string& directory,
                                     const std::function<void(std::string_view name)>& visit) = 0;

    /// True for anything that `path` leads to, directories included; false for a link that leads
    /// nowhere.
    virtual bool fileExists(const std::string& path) = 0;

    /// The bytes of a regular file, the first `limit` of them when it is longer. Absent when the
    /// file cannot be read (missing, no permission, an I/O error) or is no regular file; never
    /// waits for a pipe's other end.
    virtual std::optional<std::string> contents(const std::string& path, std::size_t limit) = 0;
};

}  // namespace glintmark::platform
