#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/files/FileURI.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

TEST(FileURITest, EscapesEachByteAsGLibDoes) {
    for (int byte = 1; byte < 256; ++byte) {
        const std::string path = std::string("/a") + static_cast<char>(byte) + "b";
        const GStringHandle expected(g_filename_to_uri(path.c_str(), nullptr, nullptr));
        EXPECT_EQ(glibFileURI(path), expected.get()) << "byte " << byte;
    }
}

TEST(FileURITest, SimplifiesThePathAsGLibProgramsDo) {
    for (const char* path : {"/a//b.webloc", "/a/./b.webloc", "/a/c/../b.webloc", "//a/b.webloc"}) {
        const GObjectHandle<GFile> file(g_file_new_for_path(path));
        const GStringHandle expected(g_file_get_uri(file.get()));
        EXPECT_EQ(glibFileURI(path), expected.get()) << path;
    }
}

TEST(FileURITest, QtLeavesSemicolonsAndBracketsBare) {
    EXPECT_EQ(qtFileURI("/a;b[c] #?%{.webloc"), "file:///a;b[c]%20%23%3F%25%7B.webloc");
    EXPECT_EQ(glibFileURI("/a;b[c].webloc"), "file:///a%3Bb%5Bc%5D.webloc");
}

TEST(FileURITest, APlainPathHasOneSpelling) {
    EXPECT_THAT(fileURIs("/a/plain.webloc", "/a/plain.webloc"),
                ElementsAre("file:///a/plain.webloc"));
}

TEST(FileURITest, APathThroughALinkHasTheSpellingsOfBothPaths) {
    EXPECT_THAT(fileURIs("/link/a;b.webloc", "/real/a;b.webloc"),
                ElementsAre("file:///link/a%3Bb.webloc", "file:///real/a%3Bb.webloc",
                            "file:///real/a;b.webloc"));
}

TEST(FileURITest, ALocationIsAPathOrAFileURI) {
    EXPECT_EQ(pathOfLocation("/a b/c%20d"), "/a b/c%20d");
    EXPECT_EQ(pathOfLocation("file:///a%20b/%FF"), "/a b/\xFF");
    EXPECT_EQ(pathOfLocation("https://example.com/a"), "");
    EXPECT_EQ(pathOfLocation("relative"), "");
    EXPECT_EQ(pathOfLocation(""), "");
}

}  // namespace
}  // namespace glintmark::platform
