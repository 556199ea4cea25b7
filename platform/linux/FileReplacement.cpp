#include "platform/linux/FileReplacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace glintmark::platform {

namespace {

bool writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool replaceFile(const std::string& path, std::string_view bytes) {
    std::string beside = path + ".XXXXXX" + std::string(unfinishedSuffix);
    const int descriptor =
        mkostemps(beside.data(), static_cast<int>(unfinishedSuffix.size()), O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool written = writeAll(descriptor, bytes);
    const bool closed = close(descriptor) == 0;  // a full disk may only show here
    if (written && closed && rename(beside.c_str(), path.c_str()) == 0) {
        return true;
    }
    unlink(beside.c_str());
    return false;
}

std::string readFile(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::string bytes;
    if (descriptor < 0) {
        return bytes;
    }
    std::array<char, 65536> chunk{};
    ssize_t count = 0;
    do {
        count = read(descriptor, chunk.data(), chunk.size());
        if (count > 0) {
            bytes.append(chunk.data(), static_cast<std::size_t>(count));
        }
    } while (count > 0 || (count < 0 && errno == EINTR));
    close(descriptor);
    return count < 0 ? std::string() : bytes;
}

}  // namespace glintmark::platform
