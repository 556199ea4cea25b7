#include "webloc/WeblocParser.h"

#include <unicode/unistr.h>

#include <algorithm>
#include <string>

#include "base/text/TextEncoding.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

namespace {

/// The link of a file that holds `bytes`.
std::optional<std::string> extracted(std::string bytes) {
    doubles::TestPlatform platform;
    const std::string path = "/home/kim/Desktop/a.webloc";
    platform.files.create(path, std::move(bytes));
    auto link = WeblocParser::extractURL(URL::fileURL(path));
    fuzz::require(platform.log.lines().size() == (link ? 0 : 1));
    fuzz::require(!link || isUTF8(*link));
    return link;
}

/// `number` as four bytes, big-endian.
std::string fourBytes(std::size_t number) {
    std::string bytes;
    for (unsigned shift = 32; shift > 0; shift -= 8) {
        bytes += static_cast<char>(number >> (shift - 8) & 0xFFU);
    }
    return bytes;
}

std::string binaryForm(const std::string& link) {
    const auto text = icu::UnicodeString::fromUTF8(link);
    std::string bytes = "bplist00\xD1\x01\x02\x53URL\x6F\x12";
    const std::size_t offsetOfText = bytes.size() - 2;
    bytes += fourBytes(static_cast<std::size_t>(text.length()));
    for (std::int32_t i = 0; i < text.length(); ++i) {
        bytes += {static_cast<char>(text[i] >> 8U), static_cast<char>(text[i] & 0xFFU)};
    }
    const std::size_t offsetOfTable = bytes.size();
    bytes += {'\x08', '\x0B', static_cast<char>(offsetOfText)};
    bytes += std::string(6, '\0') + "\x01\x01";  // bytes of an offset and of a reference
    for (const std::size_t number : {std::size_t{3}, std::size_t{0}, offsetOfTable}) {
        bytes += fourBytes(0) + fourBytes(number);
    }
    return bytes;
}

std::string oldTextForm(const std::string& link) {
    std::string text = "{ URL = \"";
    for (const char character : link) {
        if (character == '"' || character == '\\') {
            text += '\\';
        }
        text += character;
    }
    return text + "\"; }";
}

/// `link` with every character as a reference, so that none is read as markup or a line end.
std::string xmlForm(const std::string& link) {
    const auto text = icu::UnicodeString::fromUTF8(link);
    std::string xml = "<plist><dict><key>URL</key><string>";
    for (std::int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
        xml += "&#" + std::to_string(text.char32At(i)) + ";";
    }
    return xml + "</string></dict></plist>";
}

/// True if XML allows every character (XML 1.0, section 2.2).
bool isXMLText(const std::string& link) {
    const auto text = icu::UnicodeString::fromUTF8(link);
    for (std::int32_t i = 0; i < text.length(); ++i) {
        const char16_t unit = text[i];
        const bool isBlank = unit == '\t' || unit == '\n' || unit == '\r';
        if ((unit < 0x20 && !isBlank) || unit == 0xFFFE || unit == 0xFFFF) {
            return false;
        }
    }
    return true;
}

}  // namespace

/// Rule: any file gives a link or one log line, and a link written in any of the forms is read
/// back.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(fuzz::text(data, size));
    extracted(bytes);
    if (isUTF8(bytes)) {
        fuzz::require(extracted(binaryForm(bytes)) == bytes);
        fuzz::require(extracted(oldTextForm(bytes)) == bytes);
        fuzz::require(!isXMLText(bytes) || extracted(xmlForm(bytes)) == bytes);
    }
    return 0;
}
