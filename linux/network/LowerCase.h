#pragma once

#include <algorithm>
#include <string>

namespace glintmark::platform {

/// With the ASCII letters in lower case, whatever the locale.
inline std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return text;
}

}  // namespace glintmark::platform
