#include "link/PageTitle.h"

#include <glib.h>

#include <algorithm>
#include <utility>

#include "base/text/TextCase.h"
#include "base/text/TextEncoding.h"
#include "platform/Platform.h"
#include "platform/URLSession.h"

namespace glintmark::link {

namespace {

constexpr std::string_view whiteSpace = " \t\r\n\f";

/// Where `word` (lower case) stands in `text`, in any letter case, from `begin` on.
std::size_t findIgnoringCase(std::string_view text, std::string_view word, std::size_t begin) {
    const auto found =
        std::search(text.begin() + static_cast<std::ptrdiff_t>(std::min(begin, text.size())),
                    text.end(), word.begin(), word.end(),
                    [](char one, char other) { return lowercasedASCII(one) == other; });
    return found == text.end() ? std::string_view::npos
                               : static_cast<std::size_t>(found - text.begin());
}

/// The encoding after "charset=" in the first kilobyte (HTML standard, section 4.2.5.4).
std::string declaredEncoding(std::string_view page) {
    constexpr std::size_t searchedBytes = 1024;
    constexpr std::string_view key = "charset=";
    const std::string_view head = page.substr(0, searchedBytes);
    const auto found = findIgnoringCase(head, key, 0);
    if (found == std::string_view::npos) {
        return "";
    }
    std::string_view value = head.substr(found + key.size());
    if (value.starts_with('"') || value.starts_with('\'')) {
        value.remove_prefix(1);
    }
    return std::string(value.substr(0, value.find_first_of("\"'>; /\t\r\n")));
}

std::optional<std::string> asUTF8(std::string_view page) {
    if (const auto mark = byteOrderMark(page)) {
        return decodedText(page.substr(mark->bytes), mark->encoding);
    }
    return isUTF8(page) ? std::optional(std::string(page))
                        : decodedText(page, declaredEncoding(page));
}

/// Each run of white space as one blank, none at the ends.
std::string collapsed(std::string_view text) {
    std::string result;
    for (auto begin = text.find_first_not_of(whiteSpace); begin != std::string_view::npos;) {
        const auto end = std::min(text.find_first_of(whiteSpace, begin), text.size());
        result += (result.empty() ? "" : " ") + std::string(text.substr(begin, end - begin));
        begin = text.find_first_not_of(whiteSpace, end);
    }
    return result;
}

/// Where the content of the first title element begins. Comments are skipped.
std::size_t titleContent(std::string_view page) {
    constexpr std::string_view tag = "<title";
    constexpr std::string_view comment = "<!--";
    for (auto at = page.find('<'); at != std::string_view::npos; at = page.find('<', at + 1)) {
        const std::string_view rest = page.substr(at);
        if (rest.starts_with(comment)) {
            at = page.find("-->", at);
            if (at == std::string_view::npos) {
                break;
            }
        } else if (findIgnoringCase(rest.substr(0, tag.size()), tag, 0) == 0 &&
                   rest.size() > tag.size() &&
                   (rest[tag.size()] == '>' ||
                    whiteSpace.find(rest[tag.size()]) != std::string_view::npos)) {
            const auto end = rest.find('>');
            return end == std::string_view::npos ? end : at + end + 1;
        }
    }
    return std::string_view::npos;
}

bool isLeftOut(gunichar character) {
    switch (g_unichar_type(character)) {
        case G_UNICODE_CONTROL:
        case G_UNICODE_FORMAT:  // the marks of direction are of this type
        case G_UNICODE_SURROGATE:
        case G_UNICODE_UNASSIGNED:
        case G_UNICODE_PRIVATE_USE:
            // Two joiners are part of words and of pictures made of several characters.
            return character != 0x200C && character != 0x200D;
        default:
            return false;
    }
}

}  // namespace

std::optional<std::string> titleInPage(std::string_view page) {
    const auto text = asUTF8(page);
    if (!text) {
        return std::nullopt;
    }
    const auto begin = titleContent(*text);
    if (begin == std::string_view::npos) {
        return std::nullopt;
    }
    const auto end = findIgnoringCase(*text, "</title", begin);
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    std::string title =
        collapsed(withoutReferences(std::string_view(*text).substr(begin, end - begin)));
    return title.empty() ? std::nullopt : std::optional(std::move(title));
}

void fetchTitle(const URL& url, std::function<void(std::optional<std::string> title)> completion) {
    constexpr int firstSuccess = 200;
    constexpr int firstOther = 300;
    platform::URLRequest request(url);
    request.timeoutInterval = std::chrono::seconds(10);
    request.group = platform::services().urlSession.makeTaskGroup(url.host().value_or(""));
    platform::services().urlSession.startDataTask(
        std::move(request),
        [completion = std::move(completion)](const platform::URLResult& result) {
            const int status = result.response ? result.response->statusCode.value_or(0) : 0;
            const bool isSuccess = status >= firstSuccess && status < firstOther && result.body;
            completion(isSuccess ? titleInPage(*result.body) : std::nullopt);
        });
}

std::string fileNameFrom(std::string_view title, std::size_t maximumBytes) {
    if (!isUTF8(title)) {
        return "";
    }
    std::string name;
    const std::string text(title.substr(0, title.find('\0')));
    for (const char* at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        const gunichar character = g_utf8_get_char(at);
        std::string bytes;
        if (g_unichar_isspace(character) != FALSE) {
            bytes = name.empty() || name.ends_with(' ') ? "" : " ";
        } else if (character == '/') {
            bytes = "-";
        } else if (!isLeftOut(character) && !(character == '.' && name.empty())) {
            appendUTF8(bytes, character);
        }
        if (name.size() + bytes.size() > maximumBytes) {
            break;
        }
        name += bytes;
    }
    name.resize(name.find_last_not_of(' ') + 1);
    return name;
}

}  // namespace glintmark::link
