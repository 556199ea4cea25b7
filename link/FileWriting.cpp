#include "link/FileWriting.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include "base/system/FileDescriptor.h"
#include "linux/files/WholeFile.h"

namespace glintmark::link {

namespace {

constexpr mode_t modeOfNewFiles = 0666;  // less the umask

mode_t currentMask() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

/// A file beside another one, with a name that no file manager shows and no link file has. Removed
/// unless it was given its final name.
class Unfinished {
public:
    Unfinished(const std::string& path, std::string_view bytes, mode_t mode) {
        const auto slash = path.rfind('/');
        const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
        name_ = folder + ".glintmark-link.XXXXXX" + std::string(platform::unfinishedSuffix);
        file_ = FileDescriptor(::mkostemps(
            name_.data(), static_cast<int>(platform::unfinishedSuffix.size()), O_CLOEXEC));
        isWritten_ = file_ && ::fchmod(file_.get(), mode) == 0 &&
                     platform::writeWhole(file_.get(), bytes) && ::fsync(file_.get()) == 0;
    }
    ~Unfinished() {
        if (file_ && !isPlaced_) {
            const int reason = errno;
            ::unlink(name_.c_str());
            errno = reason;
        }
    }
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;

    bool isWritten() const { return isWritten_; }
    int descriptor() const { return file_.get(); }

    bool replace(const std::string& path) {
        isPlaced_ = std::rename(name_.c_str(), path.c_str()) == 0;
        return isPlaced_;
    }

    /// Fails with EEXIST if `path` names anything.
    bool placeAt(const std::string& path) {
        if (::renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
            isPlaced_ = true;
            return true;
        }
        // Some file systems know no such renaming (EINVAL), but hard links.
        const bool isLinked = errno == EINVAL && ::link(name_.c_str(), path.c_str()) == 0;
        return isLinked;  // the first name is removed by the destructor
    }

private:
    std::string name_;
    FileDescriptor file_;
    bool isWritten_ = false;
    bool isPlaced_ = false;
};

/// Copies the attributes of the name space "user". Those that the file system refuses are left out.
void copyAttributes(int from, int to) {
    const auto length = ::flistxattr(from, nullptr, 0);
    if (length <= 0) {
        return;
    }
    std::vector<char> names(static_cast<std::size_t>(length));
    const auto listed = ::flistxattr(from, names.data(), names.size());
    for (const char* name = names.data(); listed > 0 && name < names.data() + listed;
         name += std::strlen(name) + 1) {
        const auto size = ::fgetxattr(from, name, nullptr, 0);
        if (size < 0 || std::strncmp(name, "user.", 5) != 0) {
            continue;
        }
        std::vector<char> value(static_cast<std::size_t>(size));
        const auto got = ::fgetxattr(from, name, value.data(), value.size());
        if (got >= 0) {
            ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(got), 0);
        }
    }
}

}  // namespace

Written writeNewFile(const std::string& path, std::string_view bytes, bool mayReplace) {
    Unfinished file(path, bytes, modeOfNewFiles & ~currentMask());
    if (!file.isWritten()) {
        return Written::failed;
    }
    if (mayReplace ? file.replace(path) : file.placeAt(path)) {
        return Written::done;
    }
    return errno == EEXIST ? Written::exists : Written::failed;
}

bool replaceFile(const std::string& path, std::string_view bytes,
                 const platform::FileIdentity& read) {
    const auto place = platform::fileBehindLinks(path);
    const FileDescriptor old(
        place ? ::open(place->c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC) : -1);
    struct stat status {};
    if (!old || ::fstat(old.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_uid != ::geteuid() || status.st_dev != read.device ||
        status.st_ino != read.inode) {
        return false;
    }
    constexpr mode_t permissions = 07777;
    Unfinished file(*place, bytes, status.st_mode & permissions);
    if (!file.isWritten()) {
        return false;
    }
    copyAttributes(old.get(), file.descriptor());
    return file.replace(*place);
}

}  // namespace glintmark::link
