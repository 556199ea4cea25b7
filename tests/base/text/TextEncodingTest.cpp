#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "base/text/TextEncoding.h"

namespace glintmark {
namespace {

using namespace std::string_view_literals;

TEST(TextEncodingTest, CharactersTakeOneToFourBytes) {
    std::string text;
    for (const char32_t character : {U'\0', U'a', U'\u00e9', U'\u65e5', U'\U0010FFFF'}) {
        appendUTF8(text, character);
    }
    EXPECT_EQ(text, "\0a\xC3\xA9\xE6\x97\xA5\xF4\x8F\xBF\xBF"sv);
}

TEST(TextEncodingTest, OnlyWellFormedTextIsUTF8) {
    for (const auto text : {""sv, "a\0b"sv, "\0"sv, "\xC3\xA9"sv, "\xF4\x8F\xBF\xBF"sv}) {
        EXPECT_TRUE(isUTF8(text)) << text;
    }
    for (const auto text : {"\xC3"sv, "\xC3\0"sv, "\x80"sv, "\xC0\x80"sv, "\xED\xA0\x80"sv,
                            "\xF4\x90\x80\x80"sv, "\xFF"sv, "a\0\xFF"sv}) {
        EXPECT_FALSE(isUTF8(text)) << text;
    }
}

TEST(TextEncodingTest, AByteOrderMarkTellsTheEncodingAndItsLength) {
    const std::tuple<std::string_view, std::string_view, std::size_t> rows[] = {
        {"\xEF\xBB\xBFx"sv, "UTF-8", 3},          {"\xFF\xFEx\0"sv, "UTF-16LE", 2},
        {"\xFE\xFF\0x"sv, "UTF-16BE", 2},         {"\xFF\xFE\0\0x\0\0\0"sv, "UTF-32LE", 4},
        {"\0\0\xFE\xFF\0\0\0x"sv, "UTF-32BE", 4},
    };
    for (const auto& [text, encoding, bytes] : rows) {
        const auto mark = byteOrderMark(text);
        ASSERT_TRUE(mark) << encoding;
        EXPECT_EQ(mark->encoding, encoding);
        EXPECT_EQ(mark->bytes, bytes);
    }
    for (const auto text : {""sv, "x"sv, "\xEF\xBB"sv, "\xFF"sv, "\0\0\xFE"sv, "x\xEF\xBB\xBF"sv}) {
        EXPECT_FALSE(byteOrderMark(text)) << text;
    }
}

TEST(TextEncodingTest, DecodesByTheEncodingsName) {
    EXPECT_EQ(decodedText("caf\xE9", "ISO-8859-1"), "caf\xC3\xA9");
    EXPECT_EQ(decodedText("caf\xE9", "windows-1252"), "caf\xC3\xA9");
    EXPECT_EQ(decodedText("\x65\xE5"sv, "utf-16be"), "\xE6\x97\xA5");
    EXPECT_EQ(decodedText("\x93\xFA", "Shift_JIS"), "\xE6\x97\xA5");
    EXPECT_EQ(decodedText({}, "UTF-16LE"), "");
}

TEST(TextEncodingTest, RefusesWhatIsIllFormed) {
    EXPECT_FALSE(decodedText("\xC3", "UTF-8"));
    EXPECT_FALSE(decodedText("\x65", "UTF-16LE"));
    EXPECT_FALSE(decodedText("\xD8\0\0a"sv, "UTF-16BE"));
}

TEST(TextEncodingTest, AcceptsTheEncodingsOfTheWebByAllTheirNames) {
    const std::pair<std::string_view, std::vector<const char*>> rows[] = {
        {"a\xC3\xA9", {"UTF-8", "utf8", "csUTF8"}},
        {"a", {"US-ASCII", "ascii", "ANSI_X3.4-1968", "ISO_646.irv:1991", "iso-ir-6", "us"}},
        {"a\xE9", {"ISO-8859-1", "iso_8859-1:1987", "latin1", "L1", "IBM819", "iso88591"}},
        {"a\xE9", {"ISO-8859-2", "ISO-8859-3", "ISO-8859-4", "ISO-8859-5", "ISO-8859-6"}},
        {"a\xE9", {"ISO-8859-7", "ISO-8859-8", "ISO-8859-9", "ISO-8859-10", "ISO-8859-11"}},
        {"a\xE9", {"ISO-8859-13", "ISO-8859-14", "ISO-8859-15", "Latin-9", "greek", "hebrew"}},
        {"a\xE9", {"windows-1250", "windows-1251", "windows-1252", "windows-1253"}},
        {"a\xE9", {"windows-1254", "windows-1255", "windows-1256", "windows-1257"}},
        {"a\xE9", {"windows-1258", "CP1252", "cswindows1252"}},
        {"\x93\xFA", {"Shift_JIS", "MS_Kanji", "csShiftJIS", "x-sjis"}},
        {"\xC6\xFC", {"EUC-JP", "csEUCPkdFmtJapanese", "EUC-KR", "csEUCKR"}},
        {"\xC8\xD5", {"GB18030", "gb18030", "Big5", "csBig5"}},
    };
    for (const auto& [bytes, names] : rows) {
        for (const auto* name : names) {
            EXPECT_TRUE(decodedText(bytes, name)) << name;
        }
    }
}

TEST(TextEncodingTest, RefusesAllOtherConvertersOfTheSystem) {
    for (const auto* name : {"IBM1364",
                             "UTF-7",
                             "UTF-7-IMAP",
                             "TSCII",
                             "macintosh",
                             "IBM437",
                             "KOI8-R",
                             "ISO-2022-JP",
                             "ISO-2022-CN-EXT",
                             "ISO-8859-12",
                             "ISO-8859-16",
                             "ISO-8859-01",
                             "ISO-8859-",
                             "ISO-8859-1a",
                             "windows-1249",
                             "windows-1259",
                             "windows-",
                             "CP932",
                             "GBK",
                             "GB2312",
                             "BIG5-HKSCS",
                             "UCS-2",
                             "INTERNAL",
                             "WCHAR_T",
                             "TCVN",
                             "EBCDIC-US",
                             "US ",
                             " US",
                             "US IBM367",
                             "",
                             "-"}) {
        EXPECT_FALSE(decodedText("a", name)) << name;
    }
}

TEST(TextEncodingTest, PiecesOfALongTextAreItsWhole) {
    std::string text;
    for (int i = 0; i < 50'000; ++i) {
        text += "\x65\xE5"sv;
    }
    std::string pieces;
    EXPECT_TRUE(decodeInPieces(text, "UTF-16BE", [&pieces](std::string_view piece) {
        EXPECT_TRUE(isUTF8(piece));
        pieces += piece;
    }));
    EXPECT_EQ(pieces.size(), 150'000U);
    EXPECT_EQ(pieces, decodedText(text, "UTF-16BE"));
    EXPECT_FALSE(decodeInPieces(text + "\xD8", "UTF-16BE", [](auto) {}));
}

TEST(TextEncodingTest, RefusesNamesThatAConverterShouldNotGet) {
    EXPECT_FALSE(decodedText("a", "no-such-encoding"));
    EXPECT_FALSE(decodedText("a", "ISO-8859-1//TRANSLIT"));
    EXPECT_FALSE(decodedText("a", "ISO-2022-JP"));
    EXPECT_FALSE(decodedText("a", "iso_2022.kr"));
}

}  // namespace
}  // namespace glintmark
