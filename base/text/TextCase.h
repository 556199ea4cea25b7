#pragma once

#include <string>
#include <string_view>

namespace glintmark {

/// `text` (well-formed UTF-8) in lower case, each character on its own, by Unicode's simple
/// mappings. The same in every language.
std::string lowercased(std::string_view text);

/// `character`, in lower case if it is a letter of ASCII. The locale has no effect.
constexpr char lowercasedASCII(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

/// `text` with each letter of ASCII in lower case. Other bytes stay unchanged, whatever their
/// encoding.
std::string lowercasedASCII(std::string text);

/// True if `text` begins with `prefix`, which is in lower case, in any case of ASCII's letters.
bool startsWithIgnoringCase(std::string_view text, std::string_view prefix);

}  // namespace glintmark
