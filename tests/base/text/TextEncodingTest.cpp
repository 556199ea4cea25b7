#include <gtest/gtest.h>

#include <tuple>

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

TEST(TextEncodingTest, RefusesNamesThatAConverterShouldNotGet) {
    EXPECT_FALSE(decodedText("a", "no-such-encoding"));
    EXPECT_FALSE(decodedText("a", "ISO-8859-1//TRANSLIT"));
    EXPECT_FALSE(decodedText("a", "ISO-2022-JP"));
    EXPECT_FALSE(decodedText("a", "iso_2022.kr"));
}

}  // namespace
}  // namespace glintmark
