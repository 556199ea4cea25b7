#pragma once

#include <string>
#include <string_view>

#include "platform/FileIdentity.h"

namespace glintmark::link {

enum class Written {
    done,
    exists,  ///< A file has that name, and it was not to be replaced.
    failed,  ///< The reason is in `errno`.
};

/// Makes a file at `path` that holds `bytes`, with the permissions of a new file. It appears whole
/// or not at all. Only if `mayReplace`, it may take the place of another file.
Written writeNewFile(const std::string& path, std::string_view bytes, bool mayReplace);

/// Replaces the file that was read, which must be a regular file of this user, by one that holds
/// `bytes`, in one step: a reader sees the old or the new file, whole. Permissions and extended
/// attributes of users stay. Symbolic links at `path` stay and lead to the new file. False, with
/// the old file unchanged, if the path leads to another file now, or on an error.
bool replaceFile(const std::string& path, std::string_view bytes,
                 const platform::FileIdentity& read);

}  // namespace glintmark::link
