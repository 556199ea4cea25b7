#include "linux/process/ProgramEnvironment.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>

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

std::string faviconServiceAddress() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread sets it
    const char* address = std::getenv("GLINTMARK_FAVICON_SERVICE");
    std::string base = address != nullptr ? address : defaultFaviconServiceAddress;
    while (base.ends_with('/')) {
        base.pop_back();
    }
    return base;
}

}  // namespace glintmark::platform
