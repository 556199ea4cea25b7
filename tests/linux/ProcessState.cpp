#include "tests/linux/ProcessState.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace glintmark::platform {

namespace fs = std::filesystem;

std::size_t openDescriptors() {
    const fs::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

std::size_t inotifyWatches() {
    std::size_t count = 0;
    for (const auto& descriptor : fs::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream file(descriptor.path());
        for (std::string line; std::getline(file, line);) {
            count += line.starts_with("inotify wd:") ? 1U : 0U;
        }
    }
    return count;
}

std::size_t threadsNamed(const std::string& name) {
    std::size_t count = 0;
    for (const auto& task : fs::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "comm");
        std::string line;
        count += std::getline(file, line) && line == name ? 1U : 0U;
    }
    return count;
}

}  // namespace glintmark::platform
