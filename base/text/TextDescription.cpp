#include "base/text/TextDescription.h"

#include <string_view>

namespace glintmark {

namespace {

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            result += '\\';
        }
        result += character;
    }
    return result += '"';
}

}  // namespace

std::string listDescription(std::span<const std::string> texts) {
    std::string result = "[";
    std::string_view separator;
    for (const auto& text : texts) {
        result.append(separator).append(quoted(text));
        separator = ", ";
    }
    return result += "]";
}

}  // namespace glintmark
