#pragma once

#include <string>
#include <string_view>

namespace glintmark {

/// `text` (well-formed UTF-8) in lower case, each character by itself, by the simple mappings of
/// Unicode and without regard to a language.
std::string lowercased(std::string_view text);

/// `character`, in lower case if it is a letter of ASCII. No locale matters.
constexpr char lowercasedASCII(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

/// `text` with each letter of ASCII in lower case. Other bytes stay, in any encoding.
std::string lowercasedASCII(std::string text);

}  // namespace glintmark
