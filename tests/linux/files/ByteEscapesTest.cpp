#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/files/ByteEscapes.h"

namespace glintmark::platform {
namespace {

using namespace std::string_literals;

TEST(ByteEscapesTest, ValidTextStandsForItself) {
    for (const auto& text :
         {""s, "/home/kim"s, "\xC2\x80"s, "\xDF\xBF"s, "\xE0\xA0\x80"s, "\xED\x9F\xBF"s,
          "\xEE\x80\x80"s, "\xF0\x90\x80\x80"s, "\xF4\x8F\xBF\xBF"s, "\x7F"s}) {
        EXPECT_EQ(escapedAsUTF8(text), text);
    }
}

TEST(ByteEscapesTest, InvalidBytesAreEscapedAndDecodedAgain) {
    struct Case {
        std::string bytes;
        std::string text;
    };
    const Case cases[] = {
        {"\xFF"s, "\0ff"s},
        {"a\xE9z"s, "a\0e9z"s},
        {"\xC0\x80"s,
         "\0c0\0"
         "80"s},
        {"\xE3\x83"s,
         "\0e3\0"
         "83"s},
        {"\xED\xA0\x80"s,
         "\0ed\0a0\0"
         "80"s},
        {"\xF4\x90\x80\x80"s,
         "\0f4\0"
         "90\0"
         "80\0"
         "80"s},
        {"\xE3\x83\xC3\xA9"s,
         "\0e3\0"
         "83\xC3\xA9"s},
        {"\0"s,
         "\0"
         "00"s},
        {"\0"
         "41"s,
         "\0"
         "0041"s},
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(escapedAsUTF8(bytes), text);
        EXPECT_EQ(unescapedFromUTF8(text), bytes);
    }
}

TEST(ByteEscapesTest, EveryByteIsDecodedAgain) {
    for (int byte = 0; byte < 256; ++byte) {
        const auto bytes = "a"s + static_cast<char>(byte) + "b" + static_cast<char>(byte);
        EXPECT_EQ(unescapedFromUTF8(escapedAsUTF8(bytes)), bytes);
    }
}

TEST(ByteEscapesTest, AZeroWithoutTwoDigitsStandsForItself) {
    for (const auto& text : {"\0"s, "\0f"s, "\0fg"s, "\0 1"s}) {
        EXPECT_EQ(unescapedFromUTF8(text), text);
    }
}

}  // namespace
}  // namespace glintmark::platform
