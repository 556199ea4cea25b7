#include "linux/files/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "base/system/FileDescriptor.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t minimumGrowth = std::size_t{64} * 1024;  // of a file of unknown size

/// The directory of `path`, which has a "/" in it; "" for the root.
std::string parentOf(const std::string& path) { return path.substr(0, path.find_last_of('/')); }

void flushDirectory(const std::string& directory) {
    const FileDescriptor descriptor(
        ::open((directory + "/").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (descriptor) {
        ::fsync(descriptor.get());
    }
}

/// Keeps the `errno` of the call that failed.
void removeUnfinished(const std::string& file) {
    const int reason = errno;
    ::unlink(file.c_str());
    errno = reason;
}

/// Writes a new file with a unique name and returns its path; "" if that failed.
std::string writeBeside(const std::string& path, std::string_view bytes, mode_t mode,
                        Durability durability) {
    std::string temporary = path + ".XXXXXX" + std::string(unfinishedSuffix);
    const FileDescriptor descriptor(
        ::mkostemps(temporary.data(), static_cast<int>(unfinishedSuffix.size()), O_CLOEXEC));
    if (!descriptor) {
        return "";
    }
    const bool written = ::fchmod(descriptor.get(), mode) == 0 &&
                         writeWhole(descriptor.get(), bytes) &&
                         (durability == Durability::cache || ::fsync(descriptor.get()) == 0);
    if (!written) {
        removeUnfinished(temporary);
        return "";
    }
    return temporary;
}

}  // namespace

bool writeWhole(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto written = ::write(descriptor, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool writeFileAtomically(const std::string& path, std::string_view bytes, mode_t mode,
                         Durability durability) {
    const auto temporary = writeBeside(path, bytes, mode, durability);
    if (temporary.empty()) {
        return false;
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        removeUnfinished(temporary);
        return false;
    }
    if (durability == Durability::disk) {
        flushDirectory(parentOf(path));
    }
    return true;
}

bool linkFileAtomically(const std::string& existing, const std::string& path) {
    const std::string temporary =
        path + "." + std::to_string(::getpid()) + std::string(unfinishedSuffix);
    ::unlink(temporary.c_str());  // left by a crash of a process with the same number
    if (::link(existing.c_str(), temporary.c_str()) != 0) {
        return false;
    }
    const bool renamed = std::rename(temporary.c_str(), path.c_str()) == 0;
    // rename(2) leaves both names if `path` was a name of this file already.
    ::unlink(temporary.c_str());
    return renamed;
}

std::optional<std::string> fileBehindLinks(std::string path) {
    constexpr int maximumLinks = 40;  // as of the kernel, path_resolution(7)
    for (int links = 0; links <= maximumLinks; ++links) {
        std::array<char, PATH_MAX> target{};
        const auto length = ::readlink(path.c_str(), target.data(), target.size());
        if (length < 0) {
            return errno == EINVAL || errno == ENOENT ? std::optional(path) : std::nullopt;
        }
        const std::string_view text(target.data(), static_cast<std::size_t>(length));
        path = text.starts_with('/') ? std::string(text) : parentOf(path) + "/" + std::string(text);
    }
    errno = ELOOP;
    return std::nullopt;
}

bool writeFileInPlace(const std::string& path, std::string_view bytes, mode_t mode) {
    const FileDescriptor descriptor(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    return descriptor && writeWhole(descriptor.get(), bytes);
}

std::string readFile(const std::string& path) {
    const FileDescriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!descriptor || ::fstat(descriptor.get(), &status) != 0) {
        return "";
    }
    return readToEnd(descriptor.get(), static_cast<std::size_t>(status.st_size)).value_or("");
}

std::optional<std::string> readToEnd(int descriptor, std::size_t expectedBytes,
                                     std::size_t maximumBytes) try {
    std::string bytes;
    std::size_t filled = 0;
    // Room for a file that grows a little, so that a large one is never copied for it.
    bytes.reserve(std::min(maximumBytes, expectedBytes + minimumGrowth));
    // One byte more than expected, so that the last read finds the end without growing the buffer.
    bytes.resize(std::min(maximumBytes, expectedBytes + 1));
    while (filled < maximumBytes) {
        if (filled == bytes.size()) {
            bytes.resize(std::min(maximumBytes, filled + std::max(filled, minimumGrowth)));
        }
        const auto count = ::read(descriptor, bytes.data() + filled, bytes.size() - filled);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            filled += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
    bytes.resize(filled);
    return bytes;
} catch (const std::exception&) {  // no memory, or more than a string can hold
    errno = ENOMEM;
    return std::nullopt;
}

bool makeDirectories(const std::string& directory, mode_t mode) {
    if (directory.empty() || ::mkdir(directory.c_str(), mode) == 0) {
        return true;
    }
    if (errno == ENOENT) {
        return makeDirectories(parentOf(directory), mode) &&
               (::mkdir(directory.c_str(), mode) == 0 || errno == EEXIST);
    }
    struct stat status {};
    return errno == EEXIST && ::stat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace glintmark::platform
