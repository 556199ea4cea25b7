#include "base/system/FilePath.h"

namespace glintmark {

std::string appendPathComponent(std::string_view directory, std::string_view name) {
    const auto last = directory.find_last_not_of('/');
    std::string path(directory.substr(0, last == std::string_view::npos ? 0 : last + 1));
    path += '/';
    path += name;
    return path;
}

}  // namespace glintmark
