#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/plist/PropertyList.h"
#include "link/LinkFile.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark::link {
namespace {

using testing::Optional;

TEST(LinkFileTest, TheKindIsToldByTheEnding) {
    EXPECT_EQ(linkFileKind("/a/b.webloc"), LinkFileKind::webloc);
    EXPECT_EQ(linkFileKind("B.WEBLOC"), LinkFileKind::webloc);
    EXPECT_EQ(linkFileKind("/a.url/b.desktop"), LinkFileKind::desktopEntry);
    EXPECT_EQ(linkFileKind("/a/b.url"), LinkFileKind::internetShortcut);
    EXPECT_EQ(linkFileKind("/a.webloc/b"), std::nullopt);
    EXPECT_EQ(linkFileKind("/a/webloc"), std::nullopt);
}

TEST(LinkFileTest, ADesktopEntryOfTypeLinkHoldsALink) {
    struct Case {
        std::string bytes;
        std::optional<std::string> link;
    };
    const std::vector<Case> cases{
        {"[Desktop Entry]\nType=Link\nURL=http://h/\n", "http://h/"},
        {"[Desktop Entry]\r\nType = Link\r\nURL = http://h/ \r\n", "http://h/"},
        {"# a comment\n\n[Desktop Entry]\nURL=http://h/\nType=Link", "http://h/"},
        {"[Desktop Entry]\nType=Link\nURL=http://h/a\\sb\\\\c\\q\n", "http://h/a b\\c\\q"},
        {"[Desktop Entry]\nType=Link\nURL=http://a/\nURL=http://b/\n", "http://b/"},
        {"[Desktop Entry]\nType=Link\nURL=\n", ""},
        {"[Desktop Entry]\nType=Link\n#URL=http://h/\n", std::nullopt},
        {"[Desktop Entry]\nType=Link\nURL[de]=http://h/\n", std::nullopt},
        {"[Desktop Entry]\nType=Link\nURL[$e]=http://h/?$$a=$HOME$$$\n", "http://h/?$a=$HOME$$"},
        {"[Desktop Entry]\nType=Link\nURL[$i]=http://h/?$$\n", "http://h/?$$"},
        {"[Desktop Entry]\nType=Link\nURL[$e=http://h/\n", std::nullopt},
        {"[Desktop Entry]\nType=Application\nURL=http://h/\n", std::nullopt},
        {"[Desktop Entry]\nType=Link\n[Other]\nURL=http://h/\n", std::nullopt},
        {"Type=Link\nURL=http://h/\n", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(linkInDesktopEntry(test.bytes), test.link) << test.bytes;
    }
}

TEST(LinkFileTest, AShortcutHoldsALink) {
    struct Case {
        std::string bytes;
        std::optional<std::string> link;
    };
    const std::vector<Case> cases{
        {"[InternetShortcut]\r\nURL=http://h/\r\n", "http://h/"},
        {"\xEF\xBB\xBF[internetshortcut]\r\nIDList=\r\nurl=http://h/?a=b\r\n", "http://h/?a=b"},
        {"[{000214A0}]\nProp3=19,2\n[InternetShortcut]\nURL=http://h/", "http://h/"},
        {"[Other]\nURL=http://h/\n", std::nullopt},
        {"http://h/\n", std::nullopt},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(linkInShortcut(test.bytes), test.link) << test.bytes;
    }
}

TEST(LinkFileTest, OnlyTheIconOfADesktopEntryChanges) {
    struct Case {
        std::string before;
        std::optional<std::string> after;
    };
    const std::vector<Case> cases{
        {"[Desktop Entry]\nURL=u\nName=N\n", "[Desktop Entry]\nURL=u\nIcon=/p q\nName=N\n"},
        {"[Desktop Entry]\r\nURL=u\r\n", "[Desktop Entry]\r\nURL=u\r\nIcon=/p q\r\n"},
        {"[Desktop Entry]\nURL=u", "[Desktop Entry]\nURL=u\nIcon=/p q"},
        {"[Desktop Entry]\n Icon = old \nURL=u\n\n#x\n",
         "[Desktop Entry]\nIcon=/p q\nURL=u\n\n#x\n"},
        {"[Desktop Entry]\nIcon[$e]=a\nURL[$e]=u\n", "[Desktop Entry]\nIcon=/p q\nURL[$e]=u\n"},
        {"[Desktop Entry]\nIcon[de]=a\nURL=u\n[X]\nIcon=b\n",
         "[Desktop Entry]\nIcon[de]=a\nURL=u\nIcon=/p q\n[X]\nIcon=b\n"},
        {"[Other]\nURL=u\n", std::nullopt},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(desktopEntryWithIcon(test.before, "/p q"), test.after) << test.before;
    }
}

TEST(LinkFileTest, TheIconIsEscapedAndReadBack) {
    const std::string icon = " a\\b\nc\td e";
    const auto entry = desktopEntryWithIcon("[Desktop Entry]\nURL=u\n", icon).value();
    EXPECT_EQ(entry, "[Desktop Entry]\nURL=u\nIcon=\\sa\\\\b\\nc\\td e\n");
    EXPECT_THAT(iconInDesktopEntry(entry), Optional(icon));
    EXPECT_EQ(iconInDesktopEntry("[Desktop Entry]\nIcon=\n"), std::nullopt);
}

TEST(LinkFileTest, AWrittenLinkFileReadsAsItsLink) {
    for (const std::string link :
         {"http://h/?a=b&c=<d>\"'", "http://h/", "https://h/%20#x]]>", "http://h/\xC3\xA9"}) {
        EXPECT_THAT(PropertyList::stringInRoot(weblocBytes(link), "URL"), Optional(link));
    }
    EXPECT_TRUE(weblocBytes("http://h/").starts_with("<?xml "));
}

TEST(LinkFileTest, OnlyAddressesOfTheWebAreTaken) {
    struct Case {
        std::string link;
        std::optional<std::string> address;
        std::string scheme;
    };
    const std::vector<Case> cases{
        {"http://h/", "http://h/", "http"},
        {"HTTPS://H/a?b#c", "HTTPS://H/a?b#c", "HTTPS"},
        {" \nhttp://h/\n", "http://h/", "http"},
        {"http://h/a b\xC3\xA9{}", "http://h/a%20b%C3%A9%7B%7D", "http"},
        {"http://h/a\nb", std::nullopt, "http"},
        {"http:///a", std::nullopt, "http"},
        {"https:h", std::nullopt, "https"},
        {"javascript:alert(1)", std::nullopt, "javascript"},
        {"file:///etc/passwd", std::nullopt, "file"},
        {"httpx://h/", std::nullopt, "httpx"},
        {"--option", std::nullopt, ""},
        {"h/a:b", std::nullopt, ""},
        {"1http://h/", std::nullopt, ""},
        {"", std::nullopt, ""},
        {"   ", std::nullopt, ""},
    };
    for (const auto& test : cases) {
        const WebAddress address = webAddress(test.link);
        EXPECT_EQ(address.url ? std::optional(address.url->absoluteString()) : std::nullopt,
                  test.address)
            << test.link;
        EXPECT_EQ(address.scheme, test.scheme) << test.link;
    }
}

class ReadLinkFileTest : public doubles::PlatformTest {};

TEST_F(ReadLinkFileTest, TheEndingDecidesHowAFileIsRead) {
    files().create("/l/a.webloc", weblocBytes("http://a/"));
    files().create("/l/a.desktop", "[Desktop Entry]\nType=Link\nURL=http://b/\n");
    files().create("/l/a.url", "[InternetShortcut]\nURL=http://c/\n");
    files().create("/l/other", weblocBytes("http://d/"));
    EXPECT_THAT(readLinkFile("/l/a.webloc").link, Optional(std::string("http://a/")));
    EXPECT_THAT(readLinkFile("/l/a.desktop").link, Optional(std::string("http://b/")));
    EXPECT_THAT(readLinkFile("/l/a.url").link, Optional(std::string("http://c/")));
    EXPECT_THAT(readLinkFile("/l/other").link, Optional(std::string("http://d/")));
}

TEST_F(ReadLinkFileTest, AFileWithoutALinkDiffersFromOneThatCannotBeRead) {
    for (const std::string name : {"/l/a.webloc", "/l/a.desktop", "/l/a.url"}) {
        EXPECT_FALSE(readLinkFile(name).wasRead) << name;
        files().create(name, "nothing");
        EXPECT_TRUE(readLinkFile(name).wasRead) << name;
        EXPECT_EQ(readLinkFile(name).link, std::nullopt) << name;
    }
}

}  // namespace
}  // namespace glintmark::link
