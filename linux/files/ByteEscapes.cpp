#include "linux/files/ByteEscapes.h"

#include <charconv>
#include <cstddef>
#include <cstdint>

namespace glintmark::platform {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdef";

bool isBetween(char byte, unsigned low, unsigned high) {
    const auto value = static_cast<unsigned char>(byte);
    return low <= value && value <= high;
}

/// The length of the UTF-8 sequence at the start of `bytes`, which is not empty: RFC 3629,
/// section 4. 0 when there is none.
std::size_t sequenceLength(std::string_view bytes) {
    struct Form {
        unsigned firstLow, firstHigh, secondLow, secondHigh;
        std::size_t length;
    };
    static constexpr Form forms[] = {
        {0x01, 0x7F, 0, 0, 1},       {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
        {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
        {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
    };
    for (const auto& form : forms) {
        if (!isBetween(bytes[0], form.firstLow, form.firstHigh)) {
            continue;
        }
        if (bytes.size() < form.length ||
            (form.length > 1 && !isBetween(bytes[1], form.secondLow, form.secondHigh))) {
            return 0;
        }
        for (std::size_t i = 2; i < form.length; ++i) {
            if (!isBetween(bytes[i], 0x80, 0xBF)) {
                return 0;
            }
        }
        return form.length;
    }
    return 0;
}

}  // namespace

std::string escapedAsUTF8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        auto length = sequenceLength(bytes);
        if (length > 0) {
            text += bytes.substr(0, length);
        } else {
            const auto byte = static_cast<unsigned char>(bytes[0]);
            text += {'\0', hexDigits[byte / 16U], hexDigits[byte % 16U]};
            length = 1;
        }
        bytes.remove_prefix(length);
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
