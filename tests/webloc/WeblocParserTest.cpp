#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Vectors.h"
#include "tests/doubles/TestPlatform.h"
#include "webloc/WeblocParser.h"

namespace glintmark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* linkFile = "/home/kim/Desktop/a link.webloc";
constexpr const char* unreadableLine =
    "Glintmark: ファイル読み込み失敗 → /home/kim/Desktop/a link.webloc";
constexpr const char* unparsableLine =
    "Glintmark: plistパース失敗 → /home/kim/Desktop/a link.webloc";

/// An XML property list around `root`.
std::string propertyList(const std::string& root) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + root +
           "</plist>\n";
}

class WeblocParserTest : public doubles::PlatformTest {
protected:
    std::optional<std::string> extracted(std::string bytes) {
        log().forget();
        files().create(linkFile, std::move(bytes));
        return WeblocParser::extractURL(URL::fileURL(linkFile));
    }
};

TEST_F(WeblocParserTest, AgreesWithTheLinkFileCases) {
    for (const auto& testCase : test::loadVectors("plist_url")) {
        SCOPED_TRACE(testCase.label());
        const auto found = extracted(testCase.bytes("file_base64"));
        if (testCase.firm) {
            EXPECT_EQ(found, testCase.text("url"));
        }
        EXPECT_EQ(log().lines().size(), found ? 0U : 1U);
    }
}

TEST_F(WeblocParserTest, AnXMLLinkGivesItsAddressWithPathAndQuery) {
    EXPECT_EQ(extracted(propertyList("<dict><key>URL</key>"
                                     "<string>https://h/a/b?c=d&amp;e=f</string></dict>")),
              "https://h/a/b?c=d&e=f");
    EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(WeblocParserTest, ABinaryLinkGivesItsAddress) {
    // One dictionary of one entry: the offsets of the three objects end the file.
    const std::string list(
        "bplist00"
        "\xD1\x01\x02"
        "\x53URL"
        "\x5Bhttps://h/a"
        "\x08\x0B\x0F"
        "\0\0\0\0\0\0\x01\x01"
        "\0\0\0\0\0\0\0\x03"
        "\0\0\0\0\0\0\0\0"
        "\0\0\0\0\0\0\0\x1B",
        62);
    EXPECT_EQ(extracted(list), "https://h/a");
}

TEST_F(WeblocParserTest, ALinkInTheOldTextFormGivesItsAddress) {
    EXPECT_EQ(extracted("{ URL = \"https://h/a\"; }"), "https://h/a");
}

/// `text`, which is ASCII, in UTF-16 with a byte order mark, low byte first.
std::string inUTF16(std::string_view text) {
    std::string bytes = "\xFF\xFE";
    for (const char c : text) {
        bytes += {c, '\0'};
    }
    return bytes;
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
    return text;
}

TEST_F(WeblocParserTest, FilesAsOtherProgramsWriteThemGiveTheirAddress) {
    const std::string plain =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//A//DTD PLIST 1.0//EN\" \"http://a.example/p.dtd\">\n"
        "<plist version=\"1.0\">\n<dict>\n\t<key>URL</key>\n\t<string>https://h/</string>\n"
        "</dict>\n</plist>\n";
    const std::string extraKeys =
        "<key>URLName</key><string>a</string><key>date</key><date>2024-01-02T03:04:05Z</date>"
        "<key>data</key><data>\n\tAAEC\n\t</data><key>number</key><integer>-5</integer>"
        "<key>real</key><real>1e5</real><key>flag</key><false/>"
        "<key>more</key><dict><key>URL</key><string>no</string></dict>";
    const std::pair<const char*, std::string> rows[] = {
        {"as the desktop writes it", plain},
        {"line ends of two characters", replaced(plain, "\n", "\r\n")},
        {"old line ends", replaced(plain, "\n", "\r")},
        {"on one line", replaced(plain, "\n", "")},
        {"byte order mark", "\xEF\xBB\xBF" + plain},
        {"byte order mark and blank lines", "\xEF\xBB\xBF\n \n" + plain},
        {"UTF-16", inUTF16(replaced(plain, "UTF-8", "UTF-16"))},
        {"UTF-16 that calls itself UTF-8", inUTF16(plain)},
        {"encoding misspelt", replaced(plain, "UTF-8", "utf8")},
        {"encoding of old systems", replaced(plain, "UTF-8", "windows-1252")},
        {"no declaration", plain.substr(plain.find("<plist"))},
        {"zeros after the end", plain + std::string(100, '\0')},
        {"attributes", replaced(plain, "<string>", "<string id=\"1\">")},
        {"unparsed text", replaced(plain, "https://h/", "<![CDATA[https://h/]]>")},
        {"comment", replaced(plain, "https://h/", "https:<!-- : -->//h/")},
        {"numeric character", replaced(plain, "https://h/", "https&#58;//h&#x2f;")},
        {"other keys", replaced(plain, "<dict>", "<dict>" + extraKeys)},
        {"old text form with comments",
         "// a link\n{ /* the */ \"URL\" = 'https://h/'; a = (1,); }"},
        {"old text form without quotes", "{URL=https://h/;}\n"},
        {"old text form in UTF-16", inUTF16("{ URL = \"https://h/\"; data = <0fbd 77>; }")},
    };
    for (const auto& [what, bytes] : rows) {
        EXPECT_EQ(extracted(bytes), "https://h/") << what;
        EXPECT_THAT(log().lines(), IsEmpty()) << what;
    }
}

TEST_F(WeblocParserTest, TheAddressIsReturnedExactlyAsStored) {
    for (const auto* address : {"", "  https://h/ \n", "no address at all", "%zz", "日本 🌍"}) {
        EXPECT_EQ(extracted(propertyList(std::string("<dict><key>URL</key><string>") + address +
                                         "</string></dict>")),
                  address);
        EXPECT_THAT(log().lines(), IsEmpty()) << address;
    }
}

TEST_F(WeblocParserTest, OtherKeysAreIgnored) {
    EXPECT_EQ(extracted(propertyList("<dict><key>url</key><string>a</string><key>URL</key>"
                                     "<string>b</string><key>N</key><integer>1</integer></dict>")),
              "b");
}

TEST_F(WeblocParserTest, AFileWithoutAStringUnderURLLogsOneLine) {
    for (const auto& bytes : {
             std::string(),
             std::string("URL=https://h/\n"),
             std::string("[InternetShortcut]\nURL=https://h/\n"),
             std::string("<html>https://h/</html>"),
             propertyList("<array><string>https://h/</string></array>"),
             propertyList("<string>https://h/</string>"),
             propertyList("<dict></dict>"),
             propertyList("<dict><key>url</key><string>https://h/</string></dict>"),
             propertyList("<dict><key>Url</key><string>https://h/</string></dict>"),
             propertyList("<dict><key>URL</key><integer>1</integer></dict>"),
             propertyList("<dict><key>URL</key><true/></dict>"),
             propertyList("<dict><key>URL</key><date>2020-01-01T00:00:00Z</date></dict>"),
             propertyList("<dict><key>URL</key><data>aHR0cDovL2gv</data></dict>"),
             propertyList("<dict><key>URL</key><array><string>a</string></array></dict>"),
             propertyList("<dict><key>URL</key><dict/></dict>"),
         }) {
        EXPECT_EQ(extracted(bytes), std::nullopt) << bytes;
        EXPECT_THAT(log().messages(), ElementsAre(unparsableLine)) << bytes;
    }
}

TEST_F(WeblocParserTest, AMissingFileIsLoggedAsUnreadable) {
    EXPECT_EQ(WeblocParser::extractURL(URL::fileURL(linkFile)), std::nullopt);
    EXPECT_THAT(log().messages(), ElementsAre(unreadableLine));
}

TEST_F(WeblocParserTest, AFileWithoutPermissionIsLoggedAsUnreadable) {
    files().create(linkFile, propertyList("<dict><key>URL</key><string>a</string></dict>"));
    files().makeUnreadable(linkFile);
    EXPECT_EQ(WeblocParser::extractURL(URL::fileURL(linkFile)), std::nullopt);
    EXPECT_THAT(log().messages(), ElementsAre(unreadableLine));
}

TEST_F(WeblocParserTest, AFolderIsLoggedAsUnreadable) {
    files().createDirectory(linkFile);
    EXPECT_EQ(WeblocParser::extractURL(URL::fileURL(linkFile)), std::nullopt);
    EXPECT_THAT(log().messages(), ElementsAre(unreadableLine));
}

TEST_F(WeblocParserTest, AFileOfAnySizeGivesItsAddress) {
    const auto filler = std::string(std::size_t{6} * 1024 * 1024, 'x');
    const std::string entry = "<key>URL</key><string>https://h/</string>";
    for (const auto& list : {
             propertyList("<dict><!--" + filler + "-->" + entry + "</dict>"),
             propertyList("<dict><key>a</key><string>" + filler + "</string>" + entry + "</dict>"),
             propertyList("<dict>" + entry + "</dict>") + filler,
             "{ a = " + filler + "; URL = \"https://h/\"; }",
         }) {
        EXPECT_EQ(extracted(list), "https://h/");
        EXPECT_THAT(log().lines(), IsEmpty());
    }
}

TEST_F(WeblocParserTest, ThePathIsLoggedAsItsBytes) {
    const std::string path = "/home/kim/Desktop/日本 100%d #\xFF.webloc";
    EXPECT_EQ(WeblocParser::extractURL(URL::fileURL(path)), std::nullopt);
    EXPECT_THAT(log().messages(), ElementsAre("Glintmark: ファイル読み込み失敗 → " + path));
}

TEST_F(WeblocParserTest, EachCallReadsTheFileAgain) {
    EXPECT_EQ(extracted("{ URL = a; }"), "a");
    EXPECT_EQ(extracted("{ URL = b; }"), "b");
}

}  // namespace
}  // namespace glintmark
