#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/FileIdentity.h"

namespace glintmark::platform {

/// What a directory has under a name.
enum class Entry {
    none,
    link,   ///< A symbolic link, which may lead to nothing.
    other,  ///< A file of any other kind, directories included.
};

/// Listings of several directories, all at the same time. A directory whose file system does not
/// answer holds up neither the others nor the caller. One thread at a time.
class Listings {
public:
    /// Does not wait for listings that have not ended.
    virtual ~Listings() = default;

    /// Waits for the listing of one of the directories, but not beyond the time limit. Calls
    /// `visit` with the names that it found, none if the directory cannot be listed. False if the
    /// listing has not ended; then ask again later. True at most once for each directory.
    virtual bool collect(const std::string& directory,
                         const std::function<void(std::string_view name)>& visit) = 0;
};

/// The file system. Paths are bytes, taken as they are. May be called from any thread.
///
/// A call waits as long as the file system does not answer, if need be forever. Meanwhile the queue
/// on which the call was made does its other work on other threads, the main queue excepted.
class FileManager {
public:
    virtual ~FileManager() = default;

    /// The current user's home directory, absolute and without a trailing slash.
    virtual std::string homeDirectoryForCurrentUser() = 0;

    /// The user's Desktop and Downloads folders: two different absolute paths, which need not
    /// exist. The same as long as the process lives.
    virtual std::array<std::string, 2> desktopAndDownloads() = 0;

    /// Calls `visit` with the name of each entry directly inside `directory`, in the system's
    /// order, without "." and "..". False when the directory cannot be listed (missing, not a
    /// directory, no permission); `visit` may have been called before. Allocates nothing per name.
    virtual bool contentsOfDirectory(const std::string& directory,
                                     const std::function<void(std::string_view name)>& visit) = 0;

    /// Begins to list `directories`, as `contentsOfDirectory` does, and keeps the names that end in
    /// `suffix`. `limit` is how long all `collect` calls together may wait, from now on.
    virtual std::unique_ptr<Listings> beginListings(std::span<const std::string> directories,
                                                    std::string_view suffix,
                                                    std::chrono::nanoseconds limit) = 0;

    /// What `path` names. Follows no symbolic link at its end, so only the file system of the
    /// directory has to answer.
    virtual Entry entry(const std::string& path) = 0;

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
