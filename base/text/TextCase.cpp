#include "base/text/TextCase.h"

#include <glib.h>

#include <algorithm>

#include "base/text/TextEncoding.h"

namespace glintmark {

std::string lowercased(std::string_view text) {
    std::string result;
    const char* const end = text.data() + text.size();
    for (const char* next = text.data(); next != end; next = g_utf8_next_char(next)) {
        appendUTF8(result, g_unichar_tolower(g_utf8_get_char(next)));
    }
    return result;
}

std::string lowercasedASCII(std::string text) {
    for (char& character : text) {
        character = lowercasedASCII(character);
    }
    return text;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return std::ranges::equal(text.substr(0, prefix.size()), prefix, {},
                              [](char c) { return lowercasedASCII(c); });
}

}  // namespace glintmark
