#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "base/system/FileDescriptor.h"
#include "platform/FileIdentity.h"

namespace glintmark::platform {

/// A file that a path led to, held by a descriptor, so that all operations act on this file even if
/// the path leads elsewhere by then.
///
/// The descriptor is an O_PATH one (open(2)): opening never blocks, has no effect on devices and
/// pipes, and needs no permission on the file itself. So files that the user owns but may not read
/// or write are found, too.
class HeldFile {
public:
    /// Follows symbolic links. Absent if `path` leads to nothing.
    static std::optional<HeldFile> at(const std::string& path);

    /// The status when the file was opened.
    const struct stat& status() const { return status_; }

    /// A path in proc(5) that leads to this very file while the object exists, for calls that
    /// refuse O_PATH descriptors.
    std::string procPath() const;

    /// The absolute path without symbolic links. Empty if the file no longer has this name.
    std::string place() const;

    /// True if this is a regular file, and either the one that was read, or its replacement: a file
    /// with one name that lies in the same place, as a save that renames leaves it. What was read
    /// through a link has no replacement.
    bool isWhatWasRead(const FileIdentity& read) const;

private:
    HeldFile(FileDescriptor descriptor, const struct stat& status)
        : descriptor_(std::move(descriptor)), status_(status) {}

    FileDescriptor descriptor_;
    struct stat status_;
};

/// The absolute path without symbolic links of an open file. Empty if the file no longer has this
/// name.
std::string placeOf(int descriptor);

}  // namespace glintmark::platform
