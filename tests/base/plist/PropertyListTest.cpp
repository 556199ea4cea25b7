#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "base/plist/PropertyList.h"
#include "tests/Vectors.h"
#include "tests/support/Repeated.h"

namespace glintmark {
namespace {

using namespace std::string_literals;
using test::repeated;

/// The string at `key` in the root dictionary. Absent also if there is no such dictionary.
std::optional<std::string> stringUnder(std::string_view key, std::string_view bytes) {
    const auto list = PropertyList::parse(bytes);
    const auto* entries = list ? list->dictionary() : nullptr;
    if (entries == nullptr || !entries->contains(key)) {
        return std::nullopt;
    }
    const auto* value = entries->find(key)->second.string();
    return value != nullptr ? std::optional(*value) : std::nullopt;
}

std::string xml(std::string_view content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" +
           std::string(content) + "</plist>\n";
}

TEST(PropertyListTest, AgreesWithTheLinkFileCases) {
    for (const auto& testCase : test::loadVectors("plist_url")) {
        SCOPED_TRACE(testCase.label());
        const auto url = stringUnder("URL", testCase.bytes("file_base64"));
        if (testCase.firm) {
            EXPECT_EQ(url, testCase.text("url"));
        }
    }
}

TEST(PropertyListTest, ReadsAllKindsOfValues) {
    const std::string forms[] = {
        xml("<dict><key>s</key><string>t</string><key>a</key><array><integer>-0x1F</integer>"
            "<real>+1.5e3</real><real>nan</real><true/><false></false>"
            "<date>2024-01-02T03:04:05Z</date><data>AAE=</data></array>"
            "<key>d</key><dict/></dict>"),
        // The dictionary, its keys and values, the elements of the array
        "bplist00\xD3\x01\x03\x05\x02\x04\x0C"s
        "QsQtQa\xA7\x06\x07\x08\x09\x0A\x0B\x0D"s
        "Qd"s
        "\x10\x01\x22\0\0\0\0\x09\x08\x33\0\0\0\0\0\0\0\0\x41x\xD0\x80\x01"s
        "\x08\x0F\x11\x13\x15\x1D\x1F\x21\x26\x27\x28\x31\x33\x34"s
        "\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x0E\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x36"s,
        "{ s = t; a = (1, \"2\", <0fbd 77>, {}, (), 'x', /* no */ y,); d = {}; }",
    };
    for (const auto& bytes : forms) {
        SCOPED_TRACE(bytes);
        const auto list = PropertyList::parse(bytes);
        ASSERT_TRUE(list);
        ASSERT_NE(list->dictionary(), nullptr);
        const auto& entries = *list->dictionary();
        ASSERT_EQ(entries.size(), 3U);
        EXPECT_EQ(*entries.at("s").string(), "t");
        EXPECT_EQ(entries.at("a").array()->size(), 7U);
        EXPECT_TRUE(entries.at("d").dictionary()->empty());
        EXPECT_EQ(entries.at("s").array(), nullptr);
        EXPECT_EQ(entries.at("a").dictionary(), nullptr);
        EXPECT_EQ(entries.at("a").array()->front().array(), nullptr);
    }
}

// One string, the rest not kept

TEST(PropertyListStringTest, FindsWhatTheWholeTreeHas) {
    for (const auto& testCase : test::loadVectors("plist_url")) {
        SCOPED_TRACE(testCase.label());
        const auto bytes = testCase.bytes("file_base64");
        EXPECT_EQ(PropertyList::stringInRoot(bytes, "URL"), stringUnder("URL", bytes));
    }
    const std::string_view contents[] = {
        "<dict><key>a</key><dict><key>k</key><string>no</string></dict>"
        "<key>k</key><string>yes</string></dict>",
        "<dict><key>k</key><string>a</string><key>k</key><string>b</string></dict>",
        "<dict><key>k</key><dict><key>k</key><string>no</string></dict></dict>",
        "<dict><key>k</key><array><string>no</string></array></dict>",
        "<dict><key>k</key><string>a</string><key>n</key><integer>x</integer></dict>",
        "<dict><key>k</key><string>a</string><key>n</key><array><dict><key>x</key></dict></array>"
        "</dict>",
        "<dict><key>n</key><string>&amp;<![CDATA[<!-- ]]></string><key>k</key><string>b</string>"
        "</dict>",
        "<array><string>k</string></array>",
        "<string>k</string>",
    };
    for (const auto content : contents) {
        EXPECT_EQ(PropertyList::stringInRoot(xml(content), "k"), stringUnder("k", xml(content)))
            << content;
    }
    for (const auto* text :
         {"{ k = a; n = { k = no; }; }", "{ n = (k, {k = no;}); k = \"a\\n\"; }", "{ k; }",
          "{ n = 'x\\U65E5'; k = a; }", "{ k = { k = no; }; }", "{ k = a; n = ~; }"}) {
        EXPECT_EQ(PropertyList::stringInRoot(text, "k"), stringUnder("k", text)) << text;
    }
}

TEST(PropertyListStringTest, IgnoredValuesTakeNoBudget) {
    const auto entries = repeated("<key>a</key><string/>", 250'000);
    EXPECT_FALSE(PropertyList::parse(xml("<dict>" + entries + "</dict>")));
    const auto list = xml("<dict>" + entries + "<key>k</key><string>v</string></dict>");
    EXPECT_EQ(PropertyList::stringInRoot(list, "k"), "v");
    const auto text = "{ n = (" + repeated("a,", 500'000) + "); k = v; }";
    EXPECT_EQ(PropertyList::stringInRoot(text, "k"), "v");
}

TEST(PropertyListStringTest, LongCommentsAndBlanksAreReadInEachPlace) {
    // Around the lengths at which the document is cut into pieces.
    for (const std::size_t length : {32'000U, 65'536U, 500'000U}) {
        for (const auto* part : {"x", " ", "- ", "\xC3\xA9", "<!-", "]]>", "?>", "'", "\r\n"}) {
            const auto filler = repeated(part, length / std::string_view(part).size());
            const auto comment = "<!--" + filler + " -->";
            const std::string value = "<string>a" + comment + "b</string>";
            const auto list = "<?xml version='1.0'?>" + comment + "<!DOCTYPE plist>" + comment +
                              "<plist>" + comment + "<dict><key>k" + comment + "</key>" + value +
                              "</dict></plist>";
            EXPECT_EQ(PropertyList::stringInRoot(list, "k"), "ab") << part << length;
        }
        const auto blanks = repeated("\r\n \t", length);
        const auto list = "<?xml version='1.0'?>" + blanks + "<!DOCTYPE plist>" + blanks +
                          "<plist >" + "<dict>" + blanks + "<key>k</key><string>" + blanks +
                          "</string></dict>";
        EXPECT_EQ(PropertyList::stringInRoot(list + "</plist>", "k"), repeated("\n \t", length));
    }
}

TEST(PropertyListStringTest, LongMarkupThatIsNotWellFormedStaysSo) {
    const auto filler = repeated("x ", 200'000);
    for (const auto& bad : {
             "<!--" + filler + "-- -->",
             "<!--" + filler + "--->",
             "<!--" + filler + "\x01-->",
             "<!--" + filler + "\xC3-->",
             "<!--" + filler,
             "<?" + filler,
             "<![CDATA[" + filler + "]]>",
         }) {
        EXPECT_FALSE(PropertyList::stringInRoot(
            "<plist><dict>" + bad + "<key>k</key><string>v</string></dict></plist>", "k"))
            << bad.substr(0, 10) << bad.substr(bad.size() - 5);
    }
}

TEST(PropertyListStringTest, OtherTokensHaveAMaximumLength) {
    const auto with = [](const std::string& attribute, const std::string& instruction) {
        return "<plist><?a " + instruction + "?><dict><key>k</key><string a='" + attribute +
               "'>v</string></dict></plist>";
    };
    constexpr std::size_t maximum = std::size_t{4} * 1024 * 1024;
    EXPECT_EQ(PropertyList::stringInRoot(with("<!--", ""), "k"), std::nullopt);
    EXPECT_EQ(PropertyList::stringInRoot(with(">", "<!--"), "k"), "v");
    EXPECT_EQ(PropertyList::stringInRoot(with(std::string(maximum / 2, 'x'), ""), "k"), "v");
    EXPECT_EQ(PropertyList::stringInRoot(with(std::string(maximum, 'x'), ""), "k"), std::nullopt);
    EXPECT_EQ(PropertyList::stringInRoot(with("", std::string(maximum, 'x')), "k"), std::nullopt);
    EXPECT_EQ(
        PropertyList::stringInRoot(
            "<dict><key>k</key><string>&" + std::string(maximum, 'x') + "</string></dict>", "k"),
        std::nullopt);
}

TEST(PropertyListStringTest, ManyAttributesTakeOfTheBudget) {
    std::string attributes;
    for (int element = 0; element < 100'000; ++element) {
        attributes += "<true a='' b='' c='' d='' e=''/>";
    }
    EXPECT_FALSE(PropertyList::stringInRoot(
        "<dict><key>n</key><array>" + attributes + "</array><key>k</key><string>v</string></dict>",
        "k"));
}

// XML

TEST(PropertyListXMLTest, ReadsOrRefusesByTheRulesOfTheElements) {
    const std::pair<std::string_view, bool> table[] = {
        {"<dict/>", true},
        {"<string/>", true},
        {"", false},
        {" ", false},
        {"text", false},
        {"<dict/><dict/>", false},
        {"<plist><dict/></plist>", false},
        {"<key>k</key>", false},
        {"<array><key>k</key></array>", false},
        {"<array>text</array>", false},
        {"<array> \n\t<!-- c --><string>a</string><?pi?> </array>", true},
        {"<dict><string>v</string></dict>", false},
        {"<dict><key>k</key></dict>", false},
        {"<dict><key>k</key><key>k</key><string/></dict>", false},
        {"<dict><key>k</key><string/><string/></dict>", false},
        {"<dict><key><string/></key><string/></dict>", false},
        {"<dict><key>k</key><plist><string/></plist></dict>", false},
        {"<string><b/></string>", false},
        {"<url>u</url>", false},
        {"<true>yes</true>", false},
        {"<integer></integer>", false},
        {"<integer> 12 </integer>", true},
        {"<integer>+12</integer>", true},
        {"<integer>--12</integer>", false},
        {"<integer>0x</integer>", false},
        {"<integer>0xfG</integer>", false},
        {"<integer>1.5</integer>", false},
        {"<integer>99999999999999999999999999</integer>", true},
        {"<real>-infinity</real>", true},
        {"<real>1e999</real>", true},
        {"<real>+-1</real>", false},
        {"<real>1x</real>", false},
        {"<real></real>", false},
        {"<date>-2024-01-02T03:04:05Z</date>", true},
        {"<date>2024-01-02T03:04:05</date>", false},
        {"<date>2024-01-02 03:04:05Z</date>", false},
        {"<date>-01-02T03:04:05Z</date>", false},
        {"<date>x024-01-02T03:04:05Z</date>", false},
        {"<data>not base64!</data>", true},
        {"<string>&unknown;</string>", false},
        {"<string>&#xD800;</string>", false},
        {"<string>\xFF</string>", false},
        {"<string>a</String>", false},
    };
    for (const auto& [content, isRead] : table) {
        EXPECT_EQ(PropertyList::parse(xml(content)).has_value(), isRead) << content;
    }
}

TEST(PropertyListXMLTest, TheLastOfEqualKeysCounts) {
    EXPECT_EQ(stringUnder("k", xml("<dict><key>k</key><string>a</string><key>k</key>"
                                   "<string>b</string></dict>")),
              "b");
}

TEST(PropertyListXMLTest, TheRootElementMayBeMissing) {
    EXPECT_EQ(stringUnder("k", "<dict><key>k</key><string>a</string></dict>"), "a");
    EXPECT_FALSE(PropertyList::parse("<!-- c --><key>k</key>"));
}

TEST(PropertyListXMLTest, AnythingAfterTheRootElementIsIgnored) {
    const auto list = xml("<dict><key>k</key><string>a</string></dict>");
    EXPECT_EQ(stringUnder("k", list + "more"), "a");
    EXPECT_EQ(stringUnder("k", list + "\0\0"s), "a");
    EXPECT_EQ(stringUnder("k", list + "<dict>"), "a");
}

TEST(PropertyListXMLTest, ReadsDeclaredEncodings) {
    const auto declared = [](std::string_view encoding, std::string_view value) {
        return "<?xml version='1.0' encoding='" + std::string(encoding) +
               "'?><plist><dict><key>k</key><string>" + std::string(value) +
               "</string></dict></plist>";
    };
    EXPECT_EQ(stringUnder("k", declared("ISO-8859-1", "\xE9")), "\xC3\xA9");
    EXPECT_EQ(stringUnder("k", declared("windows-1252", "\x80")), "\xE2\x82\xAC");
    EXPECT_EQ(stringUnder("k", declared("Shift_JIS", "\x93\xFA")), "\xE6\x97\xA5");
    EXPECT_EQ(stringUnder("k", declared("nonsense", "a")), std::nullopt);
    EXPECT_EQ(stringUnder("k", declared("Shift_JIS", "\x93")), std::nullopt);
    EXPECT_EQ(stringUnder("k", declared("UTF-7", "a")), std::nullopt);
    EXPECT_EQ(stringUnder("k", declared("US-ASCII", "\xE9")), std::nullopt);
}

TEST(PropertyListXMLTest, AMarkOverridesTheDeclaration) {
    const auto list = xml("<dict><key>k</key><string>a</string></dict>");
    std::string little = "\xFF\xFE";
    std::string big = "\xFE\xFF";
    std::string wideLittle = "\xFF\xFE\0\0"s;
    std::string wideBig = "\0\0\xFE\xFF"s;
    for (const char c : list) {
        little += {c, '\0'};
        big += {'\0', c};
        wideLittle += {c, '\0', '\0', '\0'};
        wideBig += {'\0', '\0', '\0', c};
    }
    EXPECT_EQ(stringUnder("k", little), "a");
    EXPECT_EQ(stringUnder("k", big), "a");
    EXPECT_EQ(stringUnder("k", wideLittle), "a");
    EXPECT_EQ(stringUnder("k", wideBig), "a");
    EXPECT_EQ(stringUnder("k", wideBig + "\0"s), std::nullopt);
    EXPECT_EQ(stringUnder("k", "\xEF\xBB\xBF" + list), "a");
    EXPECT_EQ(stringUnder("k", big + "\xD8"), std::nullopt);
}

TEST(PropertyListXMLTest, EntityBombsAreRefused) {
    std::string entities = "<!ENTITY e0 'ha'>";
    for (int i = 1; i < 30; ++i) {
        const auto one = "&e" + std::to_string(i - 1) + ";";
        entities.append("<!ENTITY e").append(std::to_string(i)).append(" '");
        entities.append(one).append(one).append("'>");
    }
    EXPECT_FALSE(PropertyList::parse("<!DOCTYPE plist [" + entities +
                                     "]><plist><string>&e29;</string></plist>"));
    EXPECT_FALSE(
        PropertyList::parse("<!DOCTYPE plist [<!ENTITY f SYSTEM 'file:///etc/passwd'>]>"
                            "<plist><string>&f;</string></plist>"));
    EXPECT_FALSE(
        PropertyList::parse("<!DOCTYPE plist SYSTEM 'x'><plist><string>&f;</string></plist>"));
}

TEST(PropertyListXMLTest, DepthHasALimit) {
    const auto nested = [](std::size_t depth) {
        return xml(repeated("<array>", depth) + repeated("</array>", depth));
    };
    EXPECT_TRUE(PropertyList::parse(nested(512)));
    EXPECT_FALSE(PropertyList::parse(nested(513)));
    EXPECT_FALSE(PropertyList::parse(nested(250'000)));
}

TEST(PropertyListXMLTest, RefusesATreeThatWouldFillTheMemory) {
    EXPECT_TRUE(PropertyList::parse(xml("<array>" + repeated("<true/>", 10'000) + "</array>")));
    EXPECT_FALSE(PropertyList::parse(xml("<array>" + repeated("<true/>", 450'000) + "</array>")));
}

// Binary

/// A binary property list of `objects`, with offsets of 4 bytes. The first object is the root.
std::string binary(const std::vector<std::string>& objects, std::size_t referenceBytes = 1) {
    const auto bigEndian = [](std::size_t number, std::size_t size) {
        std::string bytes(size, '\0');
        for (std::size_t i = size; i-- > 0; number >>= 8U) {
            bytes[i] = static_cast<char>(number & 0xFFU);
        }
        return bytes;
    };
    std::string bytes = "bplist00";
    std::string offsets;
    for (const auto& object : objects) {
        offsets += bigEndian(bytes.size(), 4);
        bytes += object;
    }
    const auto table = bytes.size();
    return bytes + offsets + std::string(6, '\0') + "\x04" + bigEndian(referenceBytes, 1) +
           bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(table, 8);
}

std::string object(int marker, std::string_view contents = {}) {
    return std::string(1, static_cast<char>(marker)).append(contents);
}

TEST(PropertyListBinaryTest, ReadsOrRefusesEachKindOfObject) {
    const std::pair<std::string, bool> table[] = {
        {"\x00"s, true},
        {"\x08", true},
        {"\x09", true},
        {"\x01", false},
        {"\x0F", false},
        {"\x10z", true},
        {"\x14" + std::string(16, 'z'), true},
        {"\x15" + std::string(32, 'z'), false},
        {"\x13zzzzzzz", false},
        {object(0x21, "zz"), false},
        {object(0x22, "zzzz"), true},
        {object(0x23, "zzzzzzzz"), true},
        {object(0x33, "zzzzzzzz"), true},
        {object(0x32, "zzzz"), false},
        {object(0x42, "zz"), true},
        {object(0x43, "zz"), false},
        {"\x4F\x10\x02zz", true},
        {"\x4F\x20\x02zz", false},
        {object(0x4F), false},
        {"\x4F\x10", false},
        {"\x4F\x15", false},
        {"\x4F\x14" + std::string(15, '\0') + "\x02zz", true},
        {"\x4F\x14" + std::string(7, '\0') + "\x01" + std::string(7, '\0') + "\x02zz", false},
        {"\x4F\x13" + std::string(8, '\xFF') + "zz", false},
        {object(0x70), false},
        {"\x80z", true},
        {"\x81z", false},
        {"\xA0", true},
        {"\xC0", false},
        {"\xD0", true},
        {"\xD1\0"s, false},
        {"\xAF\x13\x40\0\0\0\0\0\0\0"s, false},
        {"\xDF\x13\x40\0\0\0\0\0\0\0"s, false},
        {"", false},
    };
    for (const auto& [object, isRead] : table) {
        EXPECT_EQ(PropertyList::parse(binary({object})).has_value(), isRead)
            << testing::PrintToString(object);
    }
}

TEST(PropertyListBinaryTest, ReadsBothKindsOfStrings) {
    EXPECT_EQ(*PropertyList::parse(binary({"Tcaf\xE9"}))->string(), "caf\xC3\xA9");
    EXPECT_EQ(*PropertyList::parse(binary({"\x61\x65\xE5"}))->string(), "\xE6\x97\xA5");
    EXPECT_EQ(*PropertyList::parse(binary({"\x62\xD8\x3D\xDE\x00"s}))->string(),
              "\xF0\x9F\x98\x80");
    EXPECT_FALSE(PropertyList::parse(binary({"\x61\xD8\x3D"}))) << "an unpaired surrogate";
}

TEST(PropertyListBinaryTest, TheLastOfEqualKeysCounts) {
    EXPECT_EQ(stringUnder("k", binary({"\xD2\x01\x01\x02\x03", "Qk", "Qa", "Qb"})), "b");
}

TEST(PropertyListBinaryTest, RefusesTrailersThatDoNotFit) {
    const auto whole = binary({"\xA0"});
    ASSERT_TRUE(PropertyList::parse(whole));
    const auto fromEnd = [&whole](std::size_t place, char byte) {
        auto bytes = whole;
        bytes[bytes.size() - place] = byte;
        return PropertyList::parse(bytes).has_value();
    };
    EXPECT_FALSE(fromEnd(26, 0)) << "offsets of no bytes";
    EXPECT_FALSE(fromEnd(26, 9)) << "offsets of nine bytes";
    EXPECT_FALSE(fromEnd(25, 0)) << "references of no bytes";
    EXPECT_FALSE(fromEnd(25, 9)) << "references of nine bytes";
    EXPECT_FALSE(fromEnd(17, 0)) << "no objects";
    EXPECT_FALSE(fromEnd(17, 2)) << "more objects than offsets";
    EXPECT_FALSE(fromEnd(24, '\x80')) << "an enormous number of objects";
    EXPECT_FALSE(fromEnd(9, 1)) << "a root beyond the objects";
    EXPECT_FALSE(fromEnd(1, 7)) << "a table inside the header";
    EXPECT_FALSE(fromEnd(1, 14)) << "a table beyond the end";
    EXPECT_FALSE(fromEnd(33, 7)) << "an object inside the header";
    EXPECT_FALSE(fromEnd(33, 9)) << "an object inside the table";
    for (std::size_t between : {1U, 4U}) {
        auto bytes = whole;
        bytes.insert(bytes.size() - 32, between, '\0');
        EXPECT_FALSE(PropertyList::parse(bytes)) << between << " bytes after the table";
    }
    EXPECT_FALSE(PropertyList::parse(whole + "\n")) << "a byte after the trailer";
    for (std::size_t size = 7; size < whole.size(); ++size) {
        EXPECT_FALSE(PropertyList::parse(whole.substr(0, size))) << size;
    }
}

TEST(PropertyListBinaryTest, CyclesAreRefused) {
    EXPECT_FALSE(PropertyList::parse(binary({"\xA1\0"s})));
    EXPECT_FALSE(PropertyList::parse(binary({"\xA2\x01\x01", "\xA2\x02\x02", "\xA2\x01\x01"})));
    EXPECT_FALSE(PropertyList::parse(binary({"\xD1\0\0"s})));
}

TEST(PropertyListBinaryTest, SharedObjectsMayNotSwellTheTree) {
    std::vector<std::string> objects;
    for (char next = 1; next < 40; ++next) {
        objects.push_back("\xA2"s + next + next);
    }
    objects.emplace_back("\xA0");
    EXPECT_FALSE(PropertyList::parse(binary(objects)));

    const std::string manyReferences = "\xAF\x12\x00\x01\x00\x00"s + repeated("\x01", 0x10000);
    const std::string longString = "\x5F\x12\x00\x01\x00\x00"s + repeated("x", 0x10000);
    EXPECT_FALSE(PropertyList::parse(binary({manyReferences, longString})));
    EXPECT_TRUE(PropertyList::parse(binary({manyReferences, "\x09"})));
}

TEST(PropertyListBinaryTest, DepthHasALimit) {
    const auto nested = [](std::size_t depth) {
        std::vector<std::string> objects;
        for (std::size_t next = 1; next < depth; ++next) {
            objects.push_back({'\xA1', static_cast<char>(next >> 8U), static_cast<char>(next)});
        }
        objects.emplace_back("\xA0");
        return binary(objects, 2);
    };
    EXPECT_TRUE(PropertyList::parse(nested(512)));
    EXPECT_FALSE(PropertyList::parse(nested(513)));
    EXPECT_FALSE(PropertyList::parse(nested(60'000)));
}

TEST(PropertyListBinaryTest, TheOneStringIsFoundAmongIgnoredObjects) {
    EXPECT_EQ(PropertyList::stringInRoot(
                  binary({"\xD2\x01\x02\x03\x04", "Qn", "Qk", "\xA2\x01\x04", "Qv"}), "k"),
              "v");
    EXPECT_EQ(PropertyList::stringInRoot(binary({"\xD1\x01\x02", "Qk", "\xD1\x01\x01"}), "k"),
              std::nullopt)
        << "a dictionary is no string";
    EXPECT_EQ(
        PropertyList::stringInRoot(
            binary({"\xD2\x01\x02\x03\x04", "\x61\0k"s, "Qn", "\x61\0v"s, "\x61\xD8\x3D"}), "k"),
        std::nullopt)
        << "an ignored text is ill-formed";
    EXPECT_EQ(PropertyList::stringInRoot(binary({"\xD2\x01\x02\x03\x04", "Qk", "Qn", "Qv",
                                                 "\xD1\x03\x03", "\xD1\x06\x06", "\x09"}),
                                         "k"),
              "v");
    EXPECT_EQ(PropertyList::stringInRoot(binary({"\xD2\x01\x02\x03\x04", "Qk", "Qn", "Qv",
                                                 "\xA2\x05\x06", "\x09", "\xD1\x05\x05"}),
                                         "k"),
              std::nullopt)
        << "an object that was checked before is still no key";
}

TEST(PropertyListBinaryTest, IgnoredObjectsAreCheckedOnceHoweverOftenTheyAreUsed) {
    std::vector<std::string> objects{"\xD2\x01\x02\x01\x03", "Qk", "Qn"};
    for (char next = 4; next < 100; ++next) {
        objects.push_back("\xA2"s + next + next);
    }
    objects.emplace_back("\xA0");
    EXPECT_EQ(PropertyList::stringInRoot(binary(objects), "k"), "k");
    objects.back() = "\xA1\x03";
    EXPECT_EQ(PropertyList::stringInRoot(binary(objects), "k"), std::nullopt) << "a cycle";
}

TEST(PropertyListBinaryTest, ObjectsThatOverlapTakeNoMoreTimeThanOthers) {
    // A hundred thousand arrays, each of which begins one byte later and is half of the file long.
    constexpr std::size_t count = 100'000;
    const auto bigEndian = [](std::size_t number) {
        return std::string{static_cast<char>(number >> 16U), static_cast<char>(number >> 8U),
                           static_cast<char>(number)};
    };
    std::string bytes = "bplist00" + "\xD2\0\0\x01\0\0\x02\0\0\x01\0\0\x03QkQn"s;
    std::string offsets = bigEndian(8) + bigEndian(21) + bigEndian(23);
    for (std::size_t number = 0; number < count; ++number) {
        offsets += bigEndian(bytes.size());
        bytes += "\xAF\x12\0\x01\0\0"s;
    }
    const auto table = bytes.size();
    bytes += offsets + std::string(6, '\0') + "\x03\x03" + std::string(5, '\0') +
             bigEndian(count + 3) + std::string(8, '\0') + std::string(5, '\0') + bigEndian(table);
    EXPECT_EQ(PropertyList::stringInRoot(bytes, "k"), std::nullopt);
}

// The old text form

TEST(PropertyListTextTest, ReadsStrings) {
    const std::pair<std::string_view, std::optional<std::string>> table[] = {
        {"word", "word"},
        {"a_b$c/d:e.f-g", "a_b$c/d:e.f-g"},
        {"\"\"", ""},
        {"'single \"'", "single \""},
        {"\"double '\"", "double '"},
        {"\"\xC3\xA9\n\"", "\xC3\xA9\n"},
        {R"("\a\b\f\n\r\t\v\"\\\'")", "\a\b\f\n\r\t\v\"\\'"},
        {R"("\101\60\7\1012")", "A0\aA2"},
        {R"("\0")", "\0"s},
        {R"("\350\200\376\377")", "\xC5\x81\xC2\xA0\xEF\xBF\xBD\xEF\xBF\xBD"},
        {R"("\777")", "\xEF\xBF\xBD"},
        {R"("\U00e9\U65E5\U41 \Uxyz")",
         "\xC3\xA9\xE6\x97\xA5"
         "A Uxyz"},
        {R"("\Ud83d\Ude00")", "\xF0\x9F\x98\x80"},
        {R"("\Ud83d")", std::nullopt},
        {R"("\Ud83d\U0041")", std::nullopt},
        {R"("\Ude00")", std::nullopt},
        {"\"\\\xC3\xA9\\x\"", "\xC3\xA9x"},
        {"\"open", std::nullopt},
        {"\"open\\", std::nullopt},
        {R"("open\")", std::nullopt},
        {"a~b", std::nullopt},
        {"\xC3\xA9", std::nullopt},
        {"\"\xE9\"", std::nullopt},
        {"two words", std::nullopt},
    };
    for (const auto& [text, expected] : table) {
        const auto list = PropertyList::parse(text);
        const auto* string = list ? list->string() : nullptr;
        EXPECT_EQ(string != nullptr ? std::optional(*string) : std::nullopt, expected) << text;
    }
}

TEST(PropertyListTextTest, ReadsOrRefusesByTheGrammar) {
    const std::pair<std::string_view, bool> table[] = {
        {"{}", true},
        {"()", true},
        {"(a, b)", true},
        {"(a, b,)", true},
        {"(,)", false},
        {"(a b)", false},
        {"(a", false},
        {"{ k = v; }", true},
        {"{ k = v }", false},
        {"{ k = ; }", false},
        {"{ = v; }", false},
        {"{ k = v;", false},
        {"{ (k) = v; }", false},
        {"{ k; }", true},
        {"{ k = v; }; ", false},
        {"{ k = v; } x", false},
        {R"({ "k" : "v" })", false},
        {"[a]", false},
        {"k = v;", false},
        {"<>", true},
        {"< 0f BD\n77 >", true},
        {"<0f b>", false},
        {"<0g>", false},
        {"<0f", false},
        {"// c\n{ /* c */ k /**/ = // c\r v; }\xE2\x80\xA8// c", true},
        {"{ k = v; } /* open", false},
        {"{ k = /* open", false},
        {"", false},
        {" ", false},
        {"// only a comment", false},
    };
    for (const auto& [text, isRead] : table) {
        EXPECT_EQ(PropertyList::parse(text).has_value(), isRead) << text;
    }
    EXPECT_FALSE(PropertyList::parse("{}\0"s));
}

TEST(PropertyListTextTest, AKeyWithoutAValueIsItsOwnValue) {
    EXPECT_EQ(stringUnder("k", "{ k; }"), "k");
}

TEST(PropertyListTextTest, TheLastOfEqualKeysCounts) {
    EXPECT_EQ(stringUnder("k", "{ k = a; k = b; }"), "b");
}

TEST(PropertyListTextTest, ReadsUTF16AndUTF32WithAMark) {
    EXPECT_EQ(stringUnder("k", "\xFE\xFF\0{\0k\0=\0\"\0\xE9\0\"\0;\0}"s), "\xC3\xA9");
    EXPECT_EQ(stringUnder("k", "\xFF\xFE\0\0{\0\0\0k\0\0\0=\0\0\0v\0\0\0;\0\0\0}\0\0\0"s), "v");
}

TEST(PropertyListTextTest, DepthHasALimit) {
    EXPECT_TRUE(PropertyList::parse(repeated("(", 512) + repeated(")", 512)));
    EXPECT_FALSE(PropertyList::parse(repeated("(", 513) + repeated(")", 513)));
    EXPECT_FALSE(PropertyList::parse(repeated("(", 100'000)));
    EXPECT_FALSE(PropertyList::parse(repeated("{k=", 100'000)));
}

TEST(PropertyListTextTest, RefusesATreeThatWouldFillTheMemory) {
    EXPECT_TRUE(PropertyList::parse("(" + repeated("a,", 10'000) + ")"));
    EXPECT_FALSE(PropertyList::parse("(" + repeated("a,", 450'000) + ")"));
}

}  // namespace
}  // namespace glintmark
