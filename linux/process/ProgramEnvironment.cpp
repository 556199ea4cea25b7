#include "linux/process/ProgramEnvironment.h"

#include <malloc.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>

#include "linux/files/PosixFileManager.h"

namespace glintmark::platform {

namespace {

constexpr auto defaultFaviconServiceAddress = "https://www.google.com";

}  // namespace

std::string programFolder() {
    std::array<char, PATH_MAX> path{};
    const auto length = readlink("/proc/self/exe", path.data(), path.size());
    const std::string program(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    return program.substr(0, program.rfind('/'));
}

std::string imageDecoderPath(const std::string& libexecFolder) {
    const auto folder = programFolder();
    auto built = folder + "/" + imageDecoderName;
    return access(built.c_str(), X_OK) == 0 ? built
                                            : folder + "/" + libexecFolder + "/" + imageDecoderName;
}

std::string faviconServiceAddress() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread sets it
    const char* address = std::getenv("GLINTMARK_FAVICON_SERVICE");
    std::string base = address != nullptr ? address : defaultFaviconServiceAddress;
    while (base.ends_with('/')) {
        base.pop_back();
    }
    return base;
}

void correctFoldersInEnvironment() {
    // NOLINTBEGIN(concurrency-mt-unsafe): no other thread runs yet
    const auto home = PosixFileManager().homeDirectoryForCurrentUser();
    setenv("HOME", home.c_str(), 1);
    for (const char* name :
         {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
        if (const char* folder = std::getenv(name); folder != nullptr && folder[0] != '/') {
            unsetenv(name);
        }
    }
    // NOLINTEND(concurrency-mt-unsafe)
}

void limitAllocator() {
    constexpr int minimumMappedBytes = 1 << 20;  // buffers of pages and pictures are mapped
    constexpr int maximumArenas = 2;
    // NOLINTBEGIN(concurrency-mt-unsafe): no other thread runs yet
    mallopt(M_MMAP_THRESHOLD, minimumMappedBytes);
    mallopt(M_ARENA_MAX, maximumArenas);
    // NOLINTEND(concurrency-mt-unsafe)
}

}  // namespace glintmark::platform
