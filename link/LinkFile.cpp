#include "link/LinkFile.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <functional>
#include <utility>

#include "base/text/TextCase.h"
#include "platform/FileManager.h"
#include "platform/Platform.h"
#include "webloc/WeblocParser.h"

namespace glintmark::link {

namespace {

constexpr std::string_view blanks = " \t";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// A line "key=value" of a file of groups, as views of the file.
struct Entry {
    std::string_view group;
    std::string_view key;
    std::string_view value;
    std::size_t begin;  ///< Where its line begins,
    std::size_t end;    ///< and where it ends, without the line break.
};

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(blanks);
    return begin == std::string_view::npos
               ? ""
               : text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

/// Calls `visit` with each entry, in order. Comments and lines of another form are skipped.
void forEachEntry(std::string_view bytes, const std::function<void(const Entry&)>& visit) {
    std::string_view group;
    std::size_t begin = bytes.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
    while (begin < bytes.size()) {
        const std::size_t newline = std::min(bytes.find('\n', begin), bytes.size());
        std::size_t end = newline;
        if (end > begin && bytes[end - 1] == '\r') {
            --end;
        }
        const std::string_view line = trimmed(bytes.substr(begin, end - begin));
        const auto equals = line.find('=');
        if (line.starts_with('[') && line.ends_with(']')) {
            group = line.substr(1, line.size() - 2);
        } else if (!line.starts_with('#') && equals != std::string_view::npos) {
            visit({group, trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)), begin,
                   end});
        }
        begin = newline + 1;
    }
}

/// What KDE's KConfig writes after a key: "e" in "URL[$e]" says that "$" in the value is special.
/// Empty for a key of another form.
std::string_view optionsOf(std::string_view key) {
    const auto begin = key.find("[$");
    return begin != std::string_view::npos && key.ends_with(']') ? key.substr(begin) : "";
}

/// The last entry of the group "Desktop Entry" with this key: of equal keys, readers take the last.
std::optional<Entry> desktopEntry(std::string_view bytes, std::string_view key) {
    std::optional<Entry> found;
    forEachEntry(bytes, [&](const Entry& entry) {
        const std::string_view bare =
            entry.key.substr(0, entry.key.size() - optionsOf(entry.key).size());
        if (entry.group == "Desktop Entry" && bare == key) {
            found = entry;
        }
    });
    return found;
}

// The escapes of the Desktop Entry Specification, section "Possible value types".
constexpr std::array<std::pair<char, char>, 5> escapes{
    {{'s', ' '}, {'n', '\n'}, {'t', '\t'}, {'r', '\r'}, {'\\', '\\'}}};

std::string unescaped(std::string_view value) {
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const auto* const escape =
            value[i] == '\\' && i + 1 < value.size()
                ? std::ranges::find(escapes, value[i + 1], &std::pair<char, char>::first)
                : escapes.end();
        if (escape == escapes.end()) {
            text += value[i];
        } else {
            text += escape->second;
            ++i;
        }
    }
    return text;
}

/// A value in which "$$" stands for "$". Variables and commands stay as they are written: a link
/// has none, and a foreign file must not read the environment.
std::string withoutExpansion(std::string_view value) {
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        text += value[i];
        if (value.substr(i).starts_with("$$")) {
            ++i;
        }
    }
    return text;
}

std::string escaped(std::string_view text) {
    std::string value;
    for (const char character : text) {
        const auto* const escape =
            std::ranges::find(escapes, character, &std::pair<char, char>::second);
        const bool mayStay = character == ' ' && !value.empty();
        if (escape == escapes.end() || mayStay) {
            value += character;
        } else {
            value += {'\\', escape->first};
        }
    }
    return value;
}

/// `text` with each character that no URL may contain as "%" and two digits. Absent for a text with
/// a control character.
std::optional<std::string> percentEscaped(std::string_view text) {
    constexpr std::string_view unsafe = " \"<>\\^`{|}";
    constexpr std::string_view digits = "0123456789ABCDEF";
    constexpr unsigned firstPrintable = 0x20;
    constexpr unsigned deleteCharacter = 0x7F;
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < firstPrintable || byte == deleteCharacter) {
            return std::nullopt;
        }
        if (byte > deleteCharacter || unsafe.find(character) != std::string_view::npos) {
            result += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
        } else {
            result += character;
        }
    }
    return result;
}

/// RFC 3986, section 3.1. Empty if `link` does not begin with a scheme and a colon.
std::string schemeOf(std::string_view link) {
    const std::string_view scheme = link.substr(0, link.find(':'));
    const auto isAlphanumeric = [](char letter) {
        return std::isalnum(static_cast<unsigned char>(letter)) != 0;
    };
    const bool isScheme =
        scheme.size() < link.size() && !scheme.empty() &&
        std::isalpha(static_cast<unsigned char>(scheme.front())) != 0 &&
        std::ranges::all_of(scheme, [&](char letter) {
            return isAlphanumeric(letter) || letter == '+' || letter == '-' || letter == '.';
        });
    return isScheme ? std::string(scheme) : "";
}

}  // namespace

std::optional<LinkFileKind> linkFileKind(std::string_view path) {
    const std::string name = lowercasedASCII(std::string(path.substr(path.rfind('/') + 1)));
    if (name.ends_with(".webloc")) {
        return LinkFileKind::webloc;
    }
    if (name.ends_with(".desktop")) {
        return LinkFileKind::desktopEntry;
    }
    if (name.ends_with(".url")) {
        return LinkFileKind::internetShortcut;
    }
    return std::nullopt;
}

LinkFileContents readLinkFile(const std::string& path) {
    LinkFileContents contents;
    const auto kind = linkFileKind(path).value_or(LinkFileKind::webloc);
    if (kind == LinkFileKind::webloc) {
        contents.link = WeblocParser::extractURL(URL::fileURL(path), &contents.identity);
        contents.wasRead = contents.link || contents.identity.inode != 0;
        return contents;
    }
    const auto bytes = platform::services().fileManager.contents(path, &contents.identity);
    contents.wasRead = bytes.has_value();
    if (bytes) {
        contents.link = kind == LinkFileKind::desktopEntry ? linkInDesktopEntry(*bytes)
                                                           : linkInShortcut(*bytes);
    }
    return contents;
}

std::optional<std::string> linkInDesktopEntry(std::string_view bytes) {
    const auto type = desktopEntry(bytes, "Type");
    const auto url = desktopEntry(bytes, "URL");
    if (!type || type->value != "Link" || !url) {
        return std::nullopt;
    }
    const std::string link = unescaped(url->value);
    return optionsOf(url->key).find('e') == std::string_view::npos ? link : withoutExpansion(link);
}

std::optional<std::string> linkInShortcut(std::string_view bytes) {
    std::optional<std::string> link;
    forEachEntry(bytes, [&](const Entry& entry) {
        const bool isURL = lowercasedASCII(std::string(entry.group)) == "internetshortcut" &&
                           lowercasedASCII(std::string(entry.key)) == "url";
        if (isURL && !link) {
            link = std::string(entry.value);
        }
    });
    return link;
}

std::optional<std::string> iconInDesktopEntry(std::string_view bytes) {
    const auto icon = desktopEntry(bytes, "Icon");
    return icon && !icon->value.empty() ? std::optional(unescaped(icon->value)) : std::nullopt;
}

std::optional<std::string> desktopEntryWithIcon(std::string_view bytes, std::string_view icon) {
    const std::string line = "Icon=" + escaped(icon);
    if (const auto present = desktopEntry(bytes, "Icon")) {
        return std::string(bytes.substr(0, present->begin)) + line +
               std::string(bytes.substr(present->end));
    }
    const auto url = desktopEntry(bytes, "URL");
    if (!url) {
        return std::nullopt;
    }
    const bool endsInCRLF = bytes.substr(url->end).starts_with('\r');
    return std::string(bytes.substr(0, url->end)) + (endsInCRLF ? "\r\n" : "\n") + line +
           std::string(bytes.substr(url->end));
}

std::string weblocBytes(std::string_view link) {
    std::string text;
    for (const char character : link) {
        switch (character) {
            case '&':
                text += "&amp;";
                break;
            case '<':
                text += "&lt;";
                break;
            case '>':
                text += "&gt;";
                break;
            default:
                text += character;
        }
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n\t<key>URL</key>\n\t<string>" +
           text + "</string>\n</dict>\n</plist>\n";
}

WebAddress webAddress(std::string_view link) {
    constexpr std::string_view whiteSpace = " \t\r\n\f";
    const auto begin = std::min(link.find_first_not_of(whiteSpace), link.size());
    link = link.substr(begin, link.find_last_not_of(whiteSpace) + 1 - begin);
    WebAddress address{std::nullopt, schemeOf(link)};
    const std::string scheme = lowercasedASCII(address.scheme);
    if (scheme != "http" && scheme != "https") {
        return address;
    }
    auto url = URL::parse(link);
    if (const auto text = url ? std::nullopt : percentEscaped(link)) {
        url = URL::parse(*text);
    }
    if (url && url->host()) {
        address.url = std::move(url);
    }
    return address;
}

}  // namespace glintmark::link
