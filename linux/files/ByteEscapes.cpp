#include "linux/files/ByteEscapes.h"

#include <glib.h>

#include <charconv>
#include <cstddef>
#include <cstdint>

namespace glintmark::platform {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdef";

}  // namespace

std::string escapedAsUTF8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    const char* const end = bytes.data() + bytes.size();
    for (const char* next = bytes.data(); next != end;) {
        const char* invalid = nullptr;
        g_utf8_validate(next, end - next, &invalid);  // also rejects the zero byte
        text.append(next, invalid);
        next = invalid;
        if (next != end) {
            const auto byte = static_cast<unsigned char>(*next++);
            text += {'\0', hexDigits[byte / 16U], hexDigits[byte % 16U]};
        }
    }
    return text;
}

std::string unescapedFromUTF8(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint8_t byte = 0;
        const auto* digits = text.data() + i + 1;
        if (text[i] == '\0' && text.size() - i > 2 &&
            std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            bytes += static_cast<char>(byte);
            i += 2;
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

}  // namespace glintmark::platform
