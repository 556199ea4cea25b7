#include "linux/files/PosixFileManager.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

#include "base/system/FileDescriptor.h"
#include "linux/files/DirectoryReader.h"
#include "linux/files/HeldFile.h"
#include "linux/files/WholeFile.h"

namespace glintmark::platform {

namespace {

// O_NONBLOCK: opening a pipe does not wait for its other end. It has no effect on files.
constexpr int readingFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr std::size_t passwordEntryBytes = std::size_t{16} * 1024;

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

}  // namespace

std::string PosixFileManager::homeDirectoryForCurrentUser() {
    const char* home = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe): nothing sets it
    return withoutTrailingSlashes(home != nullptr && home[0] == '/' ? home
                                                                    : homeInPasswordDatabase());
}

bool PosixFileManager::contentsOfDirectory(
    const std::string& directory, const std::function<void(std::string_view name)>& visit) {
    const FileDescriptor descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor) {
        return false;
    }
    DirectoryReader reader;
    reader.begin(descriptor.get());
    DirectoryReader::Entry entry{};
    while (reader.next(entry)) {
        visit(entry.name);
    }
    return !reader.failed();
}

bool PosixFileManager::fileExists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

std::optional<std::string> PosixFileManager::contents(const std::string& path, std::size_t limit,
                                                      FileIdentity* identity) {
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
    return readToEnd(descriptor.get(), static_cast<std::size_t>(status.st_size), limit);
}

}  // namespace glintmark::platform
