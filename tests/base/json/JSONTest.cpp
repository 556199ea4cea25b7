#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "base/json/JSON.h"

namespace glintmark {
namespace {

using namespace std::string_literals;

/// The string at "k" in the object that is `bytes`.
std::optional<std::string> stringUnderK(std::string_view bytes) {
    const auto json = JSON::parse(bytes);
    const auto* member = json ? json->member("k") : nullptr;
    const auto* value = member != nullptr ? member->string() : nullptr;
    return value != nullptr ? std::optional(*value) : std::nullopt;
}

/// `ascii` with each character widened to `unitBytes`.
std::string widened(std::string_view ascii, std::size_t unitBytes, bool bigEndian) {
    std::string bytes;
    for (const char c : ascii) {
        std::string unit(unitBytes, '\0');
        (bigEndian ? unit.back() : unit.front()) = c;
        bytes += unit;
    }
    return bytes;
}

TEST(JSONTest, ReadsEveryKindOfValue) {
    const auto json = JSON::parse(R"({"s":"\u00e9\n","a":[1,-2,3.5e1,true,null],"o":{},"e":""})");
    ASSERT_TRUE(json);
    EXPECT_EQ(*json->member("s")->string(), "\xC3\xA9\n");
    EXPECT_EQ(json->member("a")->array()->size(), 5U);
    EXPECT_TRUE(json->member("o")->object()->empty());
    EXPECT_EQ(*json->member("e")->string(), "");
    EXPECT_EQ(json->member("missing"), nullptr);
}

TEST(JSONTest, AValueIsOfOneKindOnly) {
    for (const auto* text : {"1", "-1", "1.5", "true", "null"}) {
        const auto json = JSON::parse(text);
        ASSERT_TRUE(json) << text;
        EXPECT_EQ(json->string(), nullptr);
        EXPECT_EQ(json->array(), nullptr);
        EXPECT_EQ(json->object(), nullptr);
        EXPECT_EQ(json->member("k"), nullptr);
    }
    EXPECT_EQ(JSON::parse("[]")->member("k"), nullptr);
    EXPECT_EQ(JSON::parse("\"x\"")->array(), nullptr);
}

TEST(JSONTest, TheLastOfEqualKeysCounts) {
    EXPECT_EQ(stringUnderK(R"({"k":"a","k":"b"})"), "b");
    EXPECT_EQ(stringUnderK(R"({"k":"a","\u006b":1})"), std::nullopt);
}

TEST(JSONTest, RefusesWhatIsNotStrict) {
    const std::string table[] = {
        "",
        " ",
        "{",
        "[1,]",
        R"({"k":1,})",
        "{'k':1}",
        "{k:1}",
        "[01]",
        "[+1]",
        "[.5]",
        "[1.]",
        "[0x10]",
        "[NaN]",
        "[Infinity]",
        "[\"\t\"]",
        R"(["\x"])",
        R"(["\u12"])",
        "[1] []",
        "// c\n1",
        "[1/**/]",
        "nul",
        "\xFF",
        "[\"\xFF\"]",
        "[\"\xC0\x80\"]",
        "[\"\xED\xA0\x80\"]",
        R"(["\ud800"])",
        "[1]\0"s,
        "[\0]"s,
        "[\"\0\"]"s,
        "[1]\0[2]"s,
        "\xEF\xBB\xBF",
        "\xEF\xBB\xBF\xEF\xBB\xBF[1]",
    };
    for (const auto& text : table) {
        EXPECT_FALSE(JSON::parse(text)) << text;
    }
}

TEST(JSONTest, TellsTheEncodingFromTheFirstBytes) {
    const std::string text = R"({"k":"v"})";
    EXPECT_EQ(stringUnderK("\xEF\xBB\xBF" + text), "v");
    for (const bool bigEndian : {false, true}) {
        for (const std::size_t unitBytes : {2U, 4U}) {
            SCOPED_TRACE(unitBytes);
            EXPECT_EQ(stringUnderK(widened(text, unitBytes, bigEndian)), "v");
            auto mark = bigEndian ? "\xFE\xFF"s : "\xFF\xFE"s;
            if (unitBytes == 4) {
                mark.insert(bigEndian ? 0 : mark.size(), 2, '\0');
            }
            EXPECT_EQ(stringUnderK(mark + widened(text, unitBytes, bigEndian)), "v");
            EXPECT_TRUE(JSON::parse(widened("1", unitBytes, bigEndian)));
        }
    }
}

TEST(JSONTest, ReadsCharactersBeyondASCIIInEveryEncoding) {
    const std::string smile = "\xF0\x9F\x98\x80";
    EXPECT_EQ(*JSON::parse("\"" + smile + "\"")->string(), smile);
    EXPECT_EQ(*JSON::parse("\"\0\x3D\xD8\x00\xDE\"\0"s)->string(), smile);
    EXPECT_EQ(*JSON::parse("\0\"\xD8\x3D\xDE\x00\0\""s)->string(), smile);
    EXPECT_EQ(*JSON::parse("\"\0\0\0\x00\xF6\x01\x00\"\0\0\0"s)->string(), smile);
    EXPECT_EQ(*JSON::parse(R"("\ud83d\ude00")")->string(), smile);
}

TEST(JSONTest, RefusesIllFormedWideText) {
    EXPECT_FALSE(JSON::parse("\"\0\x3D\xD8\"\0"s)) << "an unpaired surrogate";
    EXPECT_FALSE(JSON::parse("\"\0\"\0x"s)) << "half a unit";
    EXPECT_FALSE(JSON::parse("\"\0\0\0\x00\x00\x11\x00\"\0\0\0"s)) << "beyond Unicode";
}

TEST(JSONTest, DepthHasALimit) {
    const auto nested = [](std::size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    EXPECT_TRUE(JSON::parse(nested(512)));
    EXPECT_FALSE(JSON::parse(nested(513)));
    EXPECT_FALSE(JSON::parse(nested(1'000'000)));
    EXPECT_FALSE(JSON::parse(std::string(1'000'000, '[')));
}

TEST(JSONTest, RefusesATextWhoseTreeWouldFillTheMemory) {
    std::string elements = "[0";
    std::string members = "{\"\":0";
    for (int i = 0; i < 650'000; ++i) {
        elements += ",0";
        members += ",\"\":0";
    }
    EXPECT_FALSE(JSON::parse(elements + "]"));
    EXPECT_FALSE(JSON::parse(members + "}"));
    const auto longString = std::string(5'000'000, 'x');
    EXPECT_TRUE(JSON::parse("\"" + longString + "\""));
}

}  // namespace
}  // namespace glintmark
