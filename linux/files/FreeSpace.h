#pragma once

#include <sys/statvfs.h>

#include <string>

namespace glintmark::platform {

/// True if at least 5 % of the file system is free for the user. As in df(1), blocks that are
/// reserved for root do not count at all. True if the file system does not tell its size.
bool hasFreeSpace(const struct statvfs& status);

/// The same for the file system of `folder`, which may not exist yet. True if it does not answer.
bool hasFreeSpace(const std::string& folder);

}  // namespace glintmark::platform
