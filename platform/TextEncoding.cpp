#include "platform/TextEncoding.h"

#include <unicode/ucnv.h>
#include <unicode/utf8.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace glintmark::platform {
namespace {

struct ConverterCloser {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};

}  // namespace

void appendUTF8(std::string& text, char32_t character) {
    std::array<std::uint8_t, U8_MAX_LENGTH> bytes{};
    std::size_t length = 0;
    U8_APPEND_UNSAFE(bytes.data(), length, static_cast<std::uint32_t>(character));
    text.append(bytes.begin(), bytes.begin() + length);
}

bool isUTF8(std::string_view bytes) {
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    for (std::size_t i = 0; i < bytes.size();) {
        UChar32 character = 0;
        U8_NEXT(data, i, bytes.size(), character);
        if (character < 0) {
            return false;
        }
    }
    return true;
}

std::optional<std::string> decodedText(std::string_view bytes, const std::string& encoding) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UConverter, ConverterCloser> converter(
        ucnv_open(encoding.c_str(), &status));
    // Without this, ill-formed bytes would silently become U+FFFD.
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &status);
    std::string text;
    const auto* next = bytes.data();
    const auto* end = bytes.data() + bytes.size();
    while (U_SUCCESS(status) && next < end) {
        const auto character = ucnv_getNextUChar(converter.get(), &next, end, &status);
        if (U_SUCCESS(status)) {
            appendUTF8(text, static_cast<char32_t>(character));
        }
    }
    return U_SUCCESS(status) ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace glintmark::platform
