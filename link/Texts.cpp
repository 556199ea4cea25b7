#include "link/Texts.h"

#include <glib.h>

#include <cstdio>

#include "base/text/TextEncoding.h"
#include "linux/glib/GLibHandles.h"
#include "platform/Bundle.h"
#include "platform/Platform.h"

namespace glintmark::link {

std::string text(const std::string& key, std::initializer_list<std::string_view> values) {
    const std::string pattern = platform::services().bundle.localizedString(key);
    std::string result;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const auto index = pattern[i] == '%' && i + 1 < pattern.size() && pattern[i + 1] >= '1'
                               ? static_cast<std::size_t>(pattern[i + 1] - '1')
                               : values.size();
        if (index < values.size()) {
            result += values.begin()[index];
            ++i;
        } else {
            result += pattern[i];
        }
    }
    return result;
}

std::string printable(std::string_view text) {
    const platform::GStringHandle valid(
        g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    std::string result;
    for (const char* at = valid.get(); *at != '\0'; at = g_utf8_next_char(at)) {
        const gunichar character = g_utf8_get_char(at);
        switch (g_unichar_type(character)) {
            case G_UNICODE_CONTROL:
            case G_UNICODE_FORMAT:
            case G_UNICODE_LINE_SEPARATOR:
            case G_UNICODE_PARAGRAPH_SEPARATOR:
                result += '?';
                break;
            default:
                appendUTF8(result, character);
        }
    }
    return result;
}

void complain(std::string_view message) {
    const std::string line = "glintmark-link: " + printable(message) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace glintmark::link
