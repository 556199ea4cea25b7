#include <gtest/gtest.h>

#include "favicon/IconAddress.h"

namespace glintmark {
namespace {

TEST(IconAddressTest, AWordIsFoundInAnyLetterCase) {
    for (const auto* text : {"icon", "ICON", "an IcOn.", "iicon", "icicon"}) {
        EXPECT_TRUE(containsIgnoringCase(text, "icon")) << text;
    }
    for (const auto* text : {"", "ico", "i con", "ıcon", "icôn"}) {
        EXPECT_FALSE(containsIgnoringCase(text, "icon")) << text;
    }
}

TEST(IconAddressTest, OnlyTheEndingMakesAnSVG) {
    for (const auto* address : {".svg", "a.svg", "A.SVG", "a.sVg", "?v=a.svg", "å.Svg"}) {
        EXPECT_TRUE(endsWithSVG(address)) << address;
    }
    for (const auto* address : {"", "svg", "asvg", "a.svg?x=1", "a.svgz", "a.svg ", "a.\u017Fvg"}) {
        EXPECT_FALSE(endsWithSVG(address)) << address;
    }
}

TEST(IconAddressTest, ADecimalIntegerIsTheWholeText) {
    const std::pair<const char*, std::int64_t> rows[] = {
        {"0", 0},
        {"007", 7},
        {"+5", 5},
        {"-5", -5},
        {"-0", 0},
        {"9223372036854775807", 9223372036854775807},
        {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
        {"00000000000000000000000000000000032", 32},
    };
    for (const auto& [text, number] : rows) {
        EXPECT_EQ(decimalInteger(text), number) << text;
    }
}

TEST(IconAddressTest, AnyOtherTextIsNotADecimalInteger) {
    for (const auto* text :
         {"", "+", "-", "+-5", "-+5", "--5", " 5", "5 ", "5.0", "5x", "0x10", "1e3",
          "9223372036854775808", "-9223372036854775809", "99999999999999999999999", "５", "٣"}) {
        EXPECT_EQ(decimalInteger(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace glintmark
