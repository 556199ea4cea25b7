#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "base/text/LogMessage.h"

namespace glintmark {
namespace {

using namespace std::string_literals;

struct Expansion {
    std::string message;
    std::string line;
};

TEST(LogMessageTest, ExpandsDirectivesWithArgumentsOfZero) {
    const Expansion table[] = {
        {"", ""},
        {"plain", "plain"},
        {"100%% %%d", "100% %d"},
        {"%%%d", "%0"},
        {"%d%D%i%u%U%x%X%o%O", "000000000"},
        {"%s %S %@", "(null) (null) (null)"},
        {"%p", "0x0"},
        {"[%c%C%n]", "[]"},
        {"%f %F", "0.000000 0.000000"},
        {"%e %E", "0.000000e+00 0.000000E+00"},
        {"%g %G", "0 0"},
        {"%a %A", "0x0p+0 0X0P+0"},
        {"%hhd%hd%ld%lld%qd%jd%zd%td%Lf", "000000000.000000"},
        {"%5d|%-5d|%05d|%+d|% d|%+ d|%'d|%-05d", "    0|0    |00000|+0| 0|+0|0|0    "},
        {"%.3d|%5.3d|%05.3d|%.d|%.0d|%+.0d", "000|  000|  000|||+"},
        {"%+u|% x|%#x|%#.0x|%#o|%#.0o|%.0o", "0|0|0||0|0|"},
        {"%5p|%-5p|%05p|%.3p", "  0x0|0x0  |0x000|0x000"},
        {"%8s|%-8@|%.3S|%8.3s|%.0s|%.9s", "  (null)|(null)  |(nu|     (nu||(null)"},
        {"%3c|%-3C|%03c", "   |   |   "},
        {"%.0f|%#.0f|%.2f|%8.2f|%-8.2f|%+08.2f", "0|0.|0.00|    0.00|0.00    |+0000.00"},
        {"%.0e|%#.0E|%10.1e|% e", "0e+00|0.E+00|   0.0e+00| 0.000000e+00"},
        {"%#g|%#.1g|%#.0G|%.3g|%05g", "0.00000|0.|0.|0|00000"},
        {"%.2a|%#a|%010a|%+a", "0x0.00p+0|0x0.p+0|0x00000p+0|+0x0p+0"},
        {"%*d|%.*d|%*.*f", "0||0"},
    };
    for (const auto& [message, line] : table) {
        EXPECT_EQ(formatLogMessage(message), line) << message;
    }
}

TEST(LogMessageTest, CopiesIncompleteDirectives) {
    const std::string table[] = {
        "100%",  "100% ", "%b",      "%k",         "%5",    "%-",    "%.",
        "%.5",   "%hhhd", "%lll",    "%1$s",       "%5%",   "%.-5d", "%\xC3\xA9",
        "%\0d"s, "%ll",   "%20b%41", "%-+ #0'5.5", "%5 5d",
    };
    for (const auto& message : table) {
        EXPECT_EQ(formatLogMessage(message), message);
    }
    EXPECT_EQ(formatLogMessage("%5%d"), "%50");
}

TEST(LogMessageTest, ReadsThePercentSignsOfLinks) {
    EXPECT_EQ(formatLogMessage("Glintmark: URL → http://a/%E3%81%82"),
              "Glintmark: URL → http://a/0.000000E+003%81%82");
    EXPECT_EQ(formatLogMessage("http://a/b%20c"), "http://a/b" + std::string(20, ' '));
    EXPECT_EQ(formatLogMessage("http://a/b%2Fc"), "http://a/b0.000000c");
}

TEST(LogMessageTest, KeepsEverythingElseAsItIs) {
    const auto message = "\x1B[31m\n\r\t\0\xFF 日本語"s;
    EXPECT_EQ(formatLogMessage(message), message);
}

TEST(LogMessageTest, WidthAndPrecisionAreCapped) {
    EXPECT_EQ(formatLogMessage("%1025d").size(), 1024U);
    EXPECT_EQ(formatLogMessage("%99999999999999999999999d").size(), 1024U);
    EXPECT_EQ(formatLogMessage("%.99999999999999999999999d").size(), 1024U);
    EXPECT_EQ(formatLogMessage("%.99999999999999999999999f").size(), 1026U);
}

TEST(LogMessageTest, ALineIsCapped) {
    EXPECT_EQ(formatLogMessage(std::string(maximumLogLineBytes, 'x')).size(), maximumLogLineBytes);
    EXPECT_EQ(formatLogMessage(std::string(1'000'000, 'x')).size(), maximumLogLineBytes);
    std::string directives;
    while (directives.size() < 1'000'000) {
        directives += "%1024d";
    }
    EXPECT_EQ(formatLogMessage(directives).size(), maximumLogLineBytes);
    EXPECT_EQ(formatLogMessage(std::string(100'000, '%')).size(), 50'000U);
}

TEST(LogMessageTest, ALineIsCutBetweenCharacters) {
    const std::string before(maximumLogLineBytes - 2, 'x');
    EXPECT_EQ(formatLogMessage(before + "日本"), before);
    EXPECT_EQ(formatLogMessage(before + "é日"), before + "é");
    const auto noCharacters = std::string(maximumLogLineBytes + 9, '\x80');
    EXPECT_EQ(formatLogMessage(noCharacters).size(), maximumLogLineBytes);
}

/// Compares with what the C library prints for the literal `format` and an argument of zero.
#define EXPECT_AS_PRINTED(format, zero)                           \
    do {                                                          \
        char printed[64];                                         \
        std::snprintf(printed, sizeof printed, format, zero);     \
        EXPECT_EQ(formatLogMessage(format), printed) << (format); \
    } while (false)

TEST(LogMessageTest, AgreesWithTheCLibrary) {
    EXPECT_AS_PRINTED("%d", 0);
    EXPECT_AS_PRINTED("%+7d", 0);
    EXPECT_AS_PRINTED("%07d", 0);
    EXPECT_AS_PRINTED("%+07d", 0);
    EXPECT_AS_PRINTED("%-7d|", 0);
    EXPECT_AS_PRINTED("% 7.3d", 0);
    EXPECT_AS_PRINTED("%.0d", 0);
    EXPECT_AS_PRINTED("%+.0i", 0);
    EXPECT_AS_PRINTED("%#.0o", 0U);
    EXPECT_AS_PRINTED("%#7o", 0U);
    EXPECT_AS_PRINTED("%#7x", 0U);
    EXPECT_AS_PRINTED("%#07X", 0U);
    EXPECT_AS_PRINTED("%.4u", 0U);
    EXPECT_AS_PRINTED("%hhd", char{});
    EXPECT_AS_PRINTED("%hu", std::uint16_t{});
    EXPECT_AS_PRINTED("%ld", 0L);
    EXPECT_AS_PRINTED("%llx", 0ULL);
    EXPECT_AS_PRINTED("%f", 0.0);
    EXPECT_AS_PRINTED("%+012.3f", 0.0);
    EXPECT_AS_PRINTED("%-12.0f|", 0.0);
    EXPECT_AS_PRINTED("%#.0f", 0.0);
    EXPECT_AS_PRINTED("%e", 0.0);
    EXPECT_AS_PRINTED("%#.0e", 0.0);
    EXPECT_AS_PRINTED("% 015.2E", 0.0);
    EXPECT_AS_PRINTED("%g", 0.0);
    EXPECT_AS_PRINTED("%#g", 0.0);
    EXPECT_AS_PRINTED("%#.0g", 0.0);
    EXPECT_AS_PRINTED("%#.9G", 0.0);
    EXPECT_AS_PRINTED("%012g", 0.0);
    EXPECT_AS_PRINTED("%a", 0.0);
    EXPECT_AS_PRINTED("%.3A", 0.0);
    EXPECT_AS_PRINTED("%#a", 0.0);
    EXPECT_AS_PRINTED("%+012a", 0.0);
    EXPECT_AS_PRINTED("%-12a|", 0.0);
    EXPECT_AS_PRINTED("%Lf", 0.0L);
}

}  // namespace
}  // namespace glintmark
