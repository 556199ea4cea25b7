#include <glib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <utility>

#include "base/plist/PropertyListReaders.h"
#include "base/text/TextEncoding.h"

// The old text form, from before XML: "string", bare-word, (array, of, values), {key = value;},
// data as <0fbd77>, and comments as in C++.

namespace glintmark {
namespace {

constexpr std::string_view wordMarks = "_$/:.-";

/// The characters of octal escapes from 0200 to 0377: the upper half of the NEXTSTEP character set.
constexpr std::array<char16_t, 128> upperNextStep = {
    0x00A0, 0x00C0, 0x00C1, 0x00C2, 0x00C3, 0x00C4, 0x00C5, 0x00C7, 0x00C8, 0x00C9, 0x00CA, 0x00CB,
    0x00CC, 0x00CD, 0x00CE, 0x00CF, 0x00D0, 0x00D1, 0x00D2, 0x00D3, 0x00D4, 0x00D5, 0x00D6, 0x00D9,
    0x00DA, 0x00DB, 0x00DC, 0x00DD, 0x00DE, 0x00B5, 0x00D7, 0x00F7, 0x00A9, 0x00A1, 0x00A2, 0x00A3,
    0x2044, 0x00A5, 0x0192, 0x00A7, 0x00A4, 0x2019, 0x201C, 0x00AB, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x00AE, 0x2013, 0x2020, 0x2021, 0x00B7, 0x00A6, 0x00B6, 0x2022, 0x201A, 0x201E, 0x201D, 0x00BB,
    0x2026, 0x2030, 0x00AC, 0x00BF, 0x00B9, 0x02CB, 0x00B4, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9,
    0x00A8, 0x00B2, 0x02DA, 0x00B8, 0x00B3, 0x02DD, 0x02DB, 0x02C7, 0x2014, 0x00B1, 0x00BC, 0x00BD,
    0x00BE, 0x00E0, 0x00E1, 0x00E2, 0x00E3, 0x00E4, 0x00E5, 0x00E7, 0x00E8, 0x00E9, 0x00EA, 0x00EB,
    0x00EC, 0x00C6, 0x00ED, 0x00AA, 0x00EE, 0x00EF, 0x00F0, 0x00F1, 0x0141, 0x00D8, 0x0152, 0x00BA,
    0x00F2, 0x00F3, 0x00F4, 0x00F5, 0x00F6, 0x00E6, 0x00F9, 0x00FA, 0x00FB, 0x0131, 0x00FC, 0x00FD,
    0x0142, 0x00F8, 0x0153, 0x00DF, 0x00FE, 0x00FF, 0xFFFD, 0xFFFD,
};

constexpr char32_t firstHighSurrogate = 0xD800;  // UTF-16, RFC 2781, section 2
constexpr char32_t firstLowSurrogate = 0xDC00;
constexpr char32_t surrogateBits = 10;
constexpr char32_t firstSupplementary = 0x10000;

bool isHighSurrogate(char32_t unit) {
    return unit >> surrogateBits == firstHighSurrogate >> surrogateBits;
}
bool isLowSurrogate(char32_t unit) {
    return unit >> surrogateBits == firstLowSurrogate >> surrogateBits;
}

bool isWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           wordMarks.find(c) != std::string_view::npos;
}

/// The length of one white space character at the start of `text`; 0 if there is none. White space
/// is that of ASCII, the line separator and the paragraph separator.
std::size_t leadingSpace(std::string_view text) {
    if (text.starts_with("\xE2\x80\xA8") || text.starts_with("\xE2\x80\xA9")) {
        return 3;
    }
    return !text.empty() && (text[0] == ' ' || (text[0] >= '\t' && text[0] <= '\r')) ? 1 : 0;
}

/// The length of the comment at the start of `text`; 0 if there is none or it does not end.
std::size_t leadingComment(std::string_view text) {
    if (text.starts_with("//")) {
        return std::min(text.find_first_of("\r\n"), text.size());
    }
    if (text.starts_with("/*")) {
        const auto end = text.find("*/", 2);
        return end == std::string_view::npos ? 0 : end + 2;
    }
    return 0;
}

class TextReader {
public:
    TextReader(std::string_view text, const KeptValues& kept) : rest_(text), kept_(kept) {}

    std::optional<PropertyList> read();

private:
    std::optional<PropertyList> value(std::size_t depth, bool isKept);
    std::optional<PropertyList> dictionary(std::size_t depth, bool isKept);
    std::optional<PropertyList> array(std::size_t depth);
    std::optional<PropertyList> data();
    std::optional<std::string> string(bool isKept);
    std::optional<std::string> quotedString(char quote, bool isKept);
    std::optional<char32_t> escape();
    std::optional<char32_t> codeUnit();
    std::optional<char32_t> number(std::string_view digits, int base, std::size_t maximumDigits);

    void skipSpace();
    bool take(std::string_view expected);

    std::string_view rest_;  ///< Still to be read.
    const KeptValues& kept_;
    PropertyListBudget budget_;
};

std::optional<PropertyList> TextReader::read() {
    auto root = value(1, true);
    skipSpace();
    return rest_.empty() ? std::move(root) : std::nullopt;
}

std::optional<PropertyList> TextReader::value(std::size_t depth, bool isKept) {
    if (depth > maximumPropertyListDepth || (isKept && !budget_.takeValue())) {
        return std::nullopt;
    }
    if (take("{")) {
        return dictionary(depth, isKept);
    }
    if (take("(")) {
        return array(depth);
    }
    if (take("<")) {
        return data();
    }
    auto text = string(isKept);
    return text ? std::optional<PropertyList>(std::move(*text)) : std::nullopt;
}

std::optional<PropertyList> TextReader::dictionary(std::size_t depth, bool isKept) {
    const bool keepsKeys = isKept && (kept_.isAll() || depth == 1);
    PropertyList::Dictionary entries;
    while (!take("}")) {
        auto key = string(keepsKeys);
        if (!key) {
            return std::nullopt;
        }
        const bool keepsEntry = keepsKeys && (kept_.isAll() || *key == *kept_.onlyKey);
        // A key without a value is its own value.
        auto entry = take("=") ? value(depth + 1, keepsEntry) : PropertyList(*key);
        if (!entry || !take(";") || (keepsEntry && !budget_.takeText(key->size()))) {
            return std::nullopt;
        }
        if (keepsEntry) {
            entries.insert_or_assign(std::move(*key), std::move(*entry));
        } else if (keepsKeys) {
            budget_.giveTextBack(key->size());
        }
    }
    return PropertyList(std::move(entries));
}

std::optional<PropertyList> TextReader::array(std::size_t depth) {
    PropertyList::Array elements;
    while (!take(")")) {
        auto element = value(depth + 1, kept_.isAll());
        if (!element) {
            return std::nullopt;
        }
        if (kept_.isAll()) {
            elements.push_back(std::move(*element));
        }
        if (!take(",")) {  // a comma may follow the last element
            return take(")") ? std::optional<PropertyList>(std::move(elements)) : std::nullopt;
        }
    }
    return PropertyList(std::move(elements));
}

std::optional<PropertyList> TextReader::data() {
    std::size_t digitCount = 0;
    while (!take(">")) {
        if (rest_.empty() || hexDigits.find(rest_.front()) == std::string_view::npos) {
            return std::nullopt;
        }
        rest_.remove_prefix(1);
        ++digitCount;
    }
    return digitCount % 2 == 0 ? std::optional<PropertyList>(PropertyList::Other::data)
                               : std::nullopt;
}

/// A string that is not kept is empty.
std::optional<std::string> TextReader::string(bool isKept) {
    if (take("\"")) {
        return quotedString('"', isKept);
    }
    if (take("'")) {
        return quotedString('\'', isKept);
    }
    const auto* end = std::find_if_not(rest_.begin(), rest_.end(), isWordCharacter);
    const auto word = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
    rest_.remove_prefix(word.size());
    if (word.empty() || (isKept && !budget_.takeText(word.size()))) {
        return std::nullopt;
    }
    return std::string(isKept ? word : std::string_view());
}

std::optional<std::string> TextReader::quotedString(char quote, bool isKept) {
    const std::array<char, 2> marks{quote, '\\'};
    const std::string_view endings(marks.data(), marks.size());
    std::string text;
    while (!rest_.empty() && rest_.front() != quote) {
        if (rest_.front() != '\\') {
            const auto plain = rest_.substr(0, rest_.find_first_of(endings));
            if (!budget_.takeText(isKept ? plain.size() : 0)) {
                return std::nullopt;
            }
            text += isKept ? plain : std::string_view();
            rest_.remove_prefix(plain.size());
            continue;
        }
        rest_.remove_prefix(1);
        const auto character = escape();
        if (!character) {
            return std::nullopt;
        }
        const auto before = text.size();
        if (isKept) {
            appendUTF8(text, *character);
        }
        if (!budget_.takeText(text.size() - before)) {
            return std::nullopt;
        }
    }
    if (rest_.empty()) {
        return std::nullopt;
    }
    rest_.remove_prefix(1);
    return text;
}

/// Reads an escape after its backslash. Returns the character that the escape stands for.
std::optional<char32_t> TextReader::escape() {
    constexpr std::string_view letters = "abfnrtv";
    constexpr std::string_view characters = "\a\b\f\n\r\t\v";
    if (const auto octal = number("01234567", 8, 3)) {
        const auto byte = *octal & 0xFFU;
        return byte < 0x80 ? byte : upperNextStep[byte - 0x80];
    }
    if (rest_.starts_with('U')) {
        return codeUnit();
    }
    if (rest_.empty()) {
        return std::nullopt;
    }
    const auto letter = letters.find(rest_.front());
    if (letter != std::string_view::npos) {
        rest_.remove_prefix(1);
        return static_cast<char32_t>(characters[letter]);
    }
    // Any other character, of one byte or more, stands for itself.
    const char* const begin = rest_.data();
    rest_.remove_prefix(static_cast<std::size_t>(g_utf8_next_char(begin) - begin));
    return g_utf8_get_char(begin);
}

/// Reads a UTF-16 code unit: up to four digits after "U". Two surrogates make one character.
std::optional<char32_t> TextReader::codeUnit() {
    rest_.remove_prefix(1);
    const auto unit = number(hexDigits, 16, 4);
    if (!unit) {
        return U'U';
    }
    if (!isHighSurrogate(*unit) && !isLowSurrogate(*unit)) {
        return unit;
    }
    if (!isHighSurrogate(*unit) || !rest_.starts_with("\\U")) {
        return std::nullopt;
    }
    rest_.remove_prefix(2);
    const auto trail = number(hexDigits, 16, 4);
    if (!trail || !isLowSurrogate(*trail)) {
        return std::nullopt;
    }
    return firstSupplementary + ((*unit - firstHighSurrogate) << surrogateBits) +
           (*trail - firstLowSurrogate);
}

/// Reads a number of up to `maximumDigits` digits. Absent if no digit comes next.
std::optional<char32_t> TextReader::number(std::string_view digits, int base,
                                           std::size_t maximumDigits) {
    const auto end = std::min({rest_.find_first_not_of(digits), rest_.size(), maximumDigits});
    std::uint32_t value = 0;
    std::from_chars(rest_.data(), rest_.data() + end, value, base);
    rest_.remove_prefix(end);
    return end == 0 ? std::nullopt : std::optional<char32_t>(value);
}

void TextReader::skipSpace() {
    while (const auto length = leadingSpace(rest_) + leadingComment(rest_)) {
        rest_.remove_prefix(length);
    }
}

/// Skips white space and comments, then `expected`. False if something else comes next.
bool TextReader::take(std::string_view expected) {
    skipSpace();
    if (!rest_.starts_with(expected)) {
        return false;
    }
    rest_.remove_prefix(expected.size());
    return true;
}

}  // namespace

std::optional<PropertyList> readTextPropertyList(std::string_view text, const KeptValues& kept) {
    return TextReader(text, kept).read();
}

}  // namespace glintmark
