#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace glintmark::test {

/// `text`, `count` times.
inline std::string repeated(std::string_view text, std::size_t count) {
    std::string result;
    result.reserve(text.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

}  // namespace glintmark::test
