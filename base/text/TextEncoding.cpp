#include "base/text/TextEncoding.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <utility>

#include "base/system/ReleaseWith.h"

namespace glintmark {
namespace {

constexpr std::size_t maximumCharacterBytes = 6;  // that g_unichar_to_utf8 may write

/// True if `encoding` is safe to pass to the converter, which accepts more than a name
/// ("NAME//TRANSLIT"). The converters of encodings that switch by escape sequences are large,
/// unused on the web, and have had security holes.
bool isAcceptable(const std::string& encoding) {
    constexpr std::string_view switching = "ISO2022";
    std::string letters;
    for (const char c : encoding) {
        if (!g_ascii_isalnum(c) && std::string_view("-_.:").find(c) == std::string_view::npos) {
            return false;
        }
        if (g_ascii_isalnum(c)) {
            letters += g_ascii_toupper(c);
        }
    }
    return letters.find(switching) == std::string::npos;
}

}  // namespace

void appendUTF8(std::string& text, char32_t character) {
    std::array<char, maximumCharacterBytes> bytes{};
    const auto length = g_unichar_to_utf8(character, bytes.data());
    text.append(bytes.data(), static_cast<std::size_t>(length));
}

bool isUTF8(std::string_view bytes) {
    const char* const end = bytes.data() + bytes.size();
    const char* next = bytes.data();
    while (next != end && g_utf8_validate(next, static_cast<gssize>(end - next), &next) == FALSE) {
        if (*next != '\0') {
            return false;
        }
        ++next;  // GLib ends a text at a NUL byte; here it is a character.
    }
    return true;
}

std::optional<ByteOrderMark> byteOrderMark(std::string_view bytes) {
    using namespace std::string_view_literals;
    // UTF-32 is first, because the mark of UTF-32LE begins with that of UTF-16LE.
    constexpr std::pair<std::string_view, const char*> marks[] = {
        {"\xEF\xBB\xBF"sv, "UTF-8"}, {"\xFF\xFE\0\0"sv, "UTF-32LE"}, {"\0\0\xFE\xFF"sv, "UTF-32BE"},
        {"\xFF\xFE"sv, "UTF-16LE"},  {"\xFE\xFF"sv, "UTF-16BE"},
    };
    for (const auto& [mark, encoding] : marks) {
        if (bytes.starts_with(mark)) {
            return ByteOrderMark{encoding, mark.size()};
        }
    }
    return std::nullopt;
}

std::optional<std::string> decodedText(std::string_view bytes, const std::string& encoding) {
    if (!isAcceptable(encoding)) {
        return std::nullopt;
    }
    gsize length = 0;
    const std::unique_ptr<char, ReleaseWith<g_free>> text(
        g_convert(bytes.empty() ? "" : bytes.data(), static_cast<gssize>(bytes.size()), "UTF-8",
                  encoding.c_str(), nullptr, &length, nullptr));
    return text ? std::optional(std::string(text.get(), length)) : std::nullopt;
}

}  // namespace glintmark
