#include "linux/files/PosixFileManager.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "base/system/FileDescriptor.h"
#include "linux/files/DirectoryReader.h"
#include "linux/files/HeldFile.h"
#include "linux/files/UserDirectories.h"
#include "linux/files/WholeFile.h"
#include "linux/queues/BlockingSection.h"

namespace glintmark::platform {

namespace {

// O_NONBLOCK: opening a pipe does not wait for its other end. It has no effect on files.
constexpr int readingFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr std::size_t passwordEntryBytes = std::size_t{16} * 1024;

// A file may still be written while it is read, and those in /proc have a size of 0. Some of these
// are endless.
constexpr std::size_t maximumGrowth = std::size_t{64} * 1024;

constexpr std::size_t alwaysReadBytes = std::size_t{16} * 1024 * 1024;
constexpr std::size_t usableShareOfMemory = 2;  // one half

// The whole program is to stay below 300 MB. A link file of this size is an attack or an accident.
constexpr std::size_t maximumBytesInMemory = std::size_t{256} * 1024 * 1024;

/// False if `size` bytes would take more memory than the program may have, or more than half of
/// what the system can still give.
/// The system promises more memory than it has and ends processes when it runs out, so asking for
/// memory does not tell (proc(5): overcommit_memory). A sparse file takes no room on the disk, but
/// its bytes do in memory.
bool hasMemoryFor(std::size_t size) {
    if (size <= alwaysReadBytes) {
        return true;
    }
    if (size > maximumBytesInMemory) {
        return false;
    }
    const auto table = readFile("/proc/meminfo");
    constexpr std::string_view label = "MemAvailable:";
    const auto line = table.find(label);
    if (line == std::string::npos) {
        return true;
    }
    const auto kibibytes = std::strtoull(table.c_str() + line + label.size(), nullptr, 10);
    return size / 1024 <= kibibytes / usableShareOfMemory;
}

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    return path;
}

std::string homeInPasswordDatabase() {
    std::array<char, passwordEntryBytes> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr && found->pw_dir[0] == '/' ? found->pw_dir : "/";
}

/// `open` and `close` may wait for a file system, too.
FileDescriptor openInSection(const std::string& path, int flags) {
    const BlockingSection section;
    return FileDescriptor(::open(path.c_str(), flags));
}

void closeInSection(FileDescriptor descriptor) {
    const BlockingSection section;
    const FileDescriptor closed = std::move(descriptor);
}

}  // namespace

std::string PosixFileManager::homeDirectoryForCurrentUser() {
    const char* home = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe): nothing sets it
    return withoutTrailingSlashes(home != nullptr && home[0] == '/' ? home
                                                                    : homeInPasswordDatabase());
}

std::array<std::string, 2> PosixFileManager::desktopAndDownloads() {
    std::call_once(hasReadUserDirs_, [this] {
        const auto home = homeDirectoryForCurrentUser();
        const auto text = contents(userDirsFile(home));
        desktopAndDownloads_ = platform::desktopAndDownloads(text.value_or(""), home);
    });
    return desktopAndDownloads_;
}

bool PosixFileManager::contentsOfDirectory(
    const std::string& directory, const std::function<void(std::string_view name)>& visit) {
    auto descriptor = openInSection(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (!descriptor) {
        return false;
    }
    DirectoryReader reader;
    reader.begin(descriptor.get());
    DirectoryReader::Entry entry{};
    while (reader.next(entry)) {
        visit(entry.name);
    }
    closeInSection(std::move(descriptor));
    return !reader.failed();
}

std::unique_ptr<Listings> PosixFileManager::beginListings(std::span<const std::string> directories,
                                                          std::string_view suffix,
                                                          std::chrono::nanoseconds limit) {
    return std::make_unique<ThreadedListings>(listingThreads_, directories, suffix, limit);
}

Entry PosixFileManager::entry(const std::string& path) {
    const BlockingSection section;
    struct statx status {};
    // The flags beside AT_SYMLINK_NOFOLLOW: if `path` is a mount point, the file system that is
    // mounted there is not asked, nor is it mounted now.
    const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
    if (::statx(AT_FDCWD, path.c_str(), flags, STATX_TYPE, &status) != 0) {
        // After any other error, the directory's own word counts, which named the entry.
        const bool isAbsent = errno == ENOENT || errno == ENOTDIR || errno == EACCES ||
                              errno == ELOOP || errno == ENAMETOOLONG;
        return isAbsent ? Entry::none : Entry::other;
    }
    return S_ISLNK(status.stx_mode) ? Entry::link : Entry::other;
}

bool PosixFileManager::fileExists(const std::string& path) {
    const BlockingSection section;
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

std::size_t PosixFileManager::fileSize(const std::string& path) {
    const BlockingSection section;
    struct stat status {};
    const bool isFile = ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? static_cast<std::size_t>(status.st_size) : 0;
}

std::optional<std::string> PosixFileManager::contents(const std::string& path,
                                                      FileIdentity* identity) {
    const BlockingSection section;
    FileDescriptor descriptor(::open(path.c_str(), readingFlags | O_NOFOLLOW));
    const bool isThroughLink = !descriptor && errno == ELOOP;
    if (isThroughLink) {
        descriptor = FileDescriptor(::open(path.c_str(), readingFlags));
    }
    struct stat status {};
    if (!descriptor || ::fstat(descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    if (identity != nullptr) {
        *identity = {status.st_dev, status.st_ino, placeOf(descriptor.get()), isThroughLink};
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    if (!hasMemoryFor(size)) {
        errno = ENOMEM;
        return std::nullopt;
    }
    return readToEnd(descriptor.get(), size, size + maximumGrowth);
}

}  // namespace glintmark::platform
