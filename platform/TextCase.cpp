#include "platform/TextCase.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <cstdint>

namespace glintmark::platform {

std::string lowercased(std::string_view text) {
    std::string result;
    icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())})
        .toLower(icu::Locale::getRoot())
        .toUTF8String(result);
    return result;
}

}  // namespace glintmark::platform
