#include "base/text/TextEncoding.h"

#include <glib.h>
#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <utility>

namespace glintmark {
namespace {

constexpr std::size_t maximumCharacterBytes = 6;  // that g_unichar_to_utf8 may write

/// The registered names of the encodings that are accepted, in capitals and without punctuation,
/// each row after the C library's name for them. What the registry numbers from 1 to 15 and 1250 to
/// 1258 is not listed: see `numberedEncoding`.
struct AcceptedEncoding {
    const char* converter;
    std::string_view names;  ///< With a blank before and after each.
};

constexpr AcceptedEncoding acceptedEncodings[] = {
    {"UTF-8", " UTF8 CSUTF8 "},
    {"UTF-16", " UTF16 CSUTF16 "},
    {"UTF-16LE", " UTF16LE CSUTF16LE "},
    {"UTF-16BE", " UTF16BE CSUTF16BE "},
    {"UTF-32", " UTF32 CSUTF32 "},
    {"UTF-32LE", " UTF32LE CSUTF32LE "},
    {"UTF-32BE", " UTF32BE CSUTF32BE "},
    {"US-ASCII",
     " USASCII ASCII CSASCII ANSIX341968 ANSIX341986 ISO646US ISO646IRV1991 ISOIR6 US IBM367 "
     "CP367 "},
    {"ISO-8859-1", " ISO885911987 ISOIR100 LATIN1 L1 CSISOLATIN1 IBM819 CP819 "},
    {"ISO-8859-2", " ISO885921987 ISOIR101 LATIN2 L2 CSISOLATIN2 "},
    {"ISO-8859-3", " ISO885931988 ISOIR109 LATIN3 L3 CSISOLATIN3 "},
    {"ISO-8859-4", " ISO885941988 ISOIR110 LATIN4 L4 CSISOLATIN4 "},
    {"ISO-8859-5", " ISO885951988 ISOIR144 CYRILLIC CSISOLATINCYRILLIC "},
    {"ISO-8859-6", " ISO885961987 ISOIR127 ARABIC CSISOLATINARABIC ECMA114 ASMO708 "},
    {"ISO-8859-7", " ISO885971987 ISOIR126 GREEK GREEK8 CSISOLATINGREEK ECMA118 ELOT928 "},
    {"ISO-8859-8", " ISO885981988 ISOIR138 HEBREW CSISOLATINHEBREW "},
    {"ISO-8859-9", " ISO885991989 ISOIR148 LATIN5 L5 CSISOLATIN5 "},
    {"ISO-8859-10", " ISO8859101992 ISOIR157 LATIN6 L6 CSISOLATIN6 "},
    {"ISO-8859-13", " CSISO885913 "},
    {"ISO-8859-14", " ISO8859141998 ISOIR199 LATIN8 L8 ISOCELTIC CSISO885914 "},
    {"ISO-8859-15", " LATIN9 CSISO885915 "},
    {"SHIFT_JIS", " SHIFTJIS SJIS XSJIS MSKANJI CSSHIFTJIS "},
    {"EUC-JP", " EUCJP XEUCJP CSEUCPKDFMTJAPANESE EXTENDEDUNIXCODEPACKEDFORMATFORJAPANESE "},
    {"EUC-KR", " EUCKR CSEUCKR "},
    {"GB18030", " GB18030 CSGB18030 "},
    {"BIG5", " BIG5 CSBIG5 "},
};

constexpr std::size_t pieceBytes = std::size_t{16} * 1024;

/// `encoding` in capitals and without punctuation. Empty if it has a character that no registered
/// name has: the converter takes more than a name ("NAME//TRANSLIT").
std::string plainName(std::string_view encoding) {
    std::string name;
    for (const char c : encoding) {
        if (g_ascii_isalnum(c)) {
            name += g_ascii_toupper(c);
        } else if (std::string_view("-_.:").find(c) == std::string_view::npos) {
            return "";
        }
    }
    return name;
}

/// The converter for "ISO-8859-N" and "windows-N"; empty if `name` is not one of these.
std::string numberedEncoding(std::string_view name) {
    const auto numberAfter = [name](std::string_view prefix) {
        int number = 0;
        const auto* const end = name.data() + name.size();
        const auto* const begin = name.data() + std::min(prefix.size(), name.size());
        const bool isNumber = name.starts_with(prefix) && begin != end && *begin != '0' &&
                              std::from_chars(begin, end, number).ptr == end;
        return isNumber ? number : 0;
    };
    const int part = numberAfter("ISO8859");
    if (part >= 1 && part <= 15 && part != 12) {  // part 12 was never made
        return "ISO-8859-" + std::to_string(part);
    }
    for (const auto* prefix : {"WINDOWS", "CP", "CSWINDOWS"}) {
        const int page = numberAfter(prefix);
        if (page >= 1250 && page <= 1258) {
            return "CP" + std::to_string(page);
        }
    }
    return "";
}

/// The C library's name for `encoding`; empty if it is not accepted.
std::string converterFor(std::string_view encoding) {
    const auto name = plainName(encoding);
    if (name.empty()) {
        return "";
    }
    const auto listed = " " + name + " ";
    for (const auto& accepted : acceptedEncodings) {
        if (accepted.names.find(listed) != std::string_view::npos) {
            return accepted.converter;
        }
    }
    return numberedEncoding(name);
}

class Converter {
public:
    explicit Converter(const std::string& name) : handle_(iconv_open("UTF-8", name.c_str())) {}
    ~Converter() {
        if (isOpen()) {
            iconv_close(handle_);
        }
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool isOpen() const {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): iconv_open(3) reports failure like this
        return handle_ != reinterpret_cast<iconv_t>(-1);
    }
    iconv_t get() const { return handle_; }

private:
    iconv_t handle_;
};

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
        // GLib ends a text at a NUL byte; here it is a character.
        next = std::find_if(next, end, [](char c) { return c != '\0'; });
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

bool decodeInPieces(std::string_view bytes, const std::string& encoding,
                    const std::function<void(std::string_view piece)>& take) {
    const auto name = converterFor(encoding);
    if (name.empty()) {
        return false;
    }
    const Converter converter(name);
    if (!converter.isOpen()) {
        return false;
    }
    std::array<char, pieceBytes> piece{};
    char* next = const_cast<char*>(bytes.data());  // iconv(3) does not write to its input
    std::size_t rest = bytes.size();
    bool isFlushed = false;
    while (!isFlushed) {
        isFlushed = rest == 0;
        char* out = piece.data();
        std::size_t space = piece.size();
        const auto result =
            iconv(converter.get(), isFlushed ? nullptr : &next, &rest, &out, &space);
        const bool isPieceFull = errno == E2BIG && space < piece.size();
        if (result == static_cast<std::size_t>(-1) && !isPieceFull) {
            return false;  // ill-formed, or a character that does not end
        }
        take({piece.data(), piece.size() - space});
    }
    return true;
}

std::optional<std::string> decodedText(std::string_view bytes, const std::string& encoding) {
    std::string text;
    const bool isDecoded =
        decodeInPieces(bytes, encoding, [&text](std::string_view piece) { text += piece; });
    return isDecoded ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace glintmark
