#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace glintmark::test {

/// The bytes of the file at `path`. Empty when it cannot be read.
inline std::string wholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace glintmark::test
