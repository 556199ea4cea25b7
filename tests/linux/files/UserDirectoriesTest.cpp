#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "linux/files/PosixFileManager.h"
#include "linux/files/UserDirectories.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

constexpr const char* home = "/home/kim";

struct Case {
    const char* description;
    std::string text;
    std::string desktop;
    std::string downloads;
};

TEST(UserDirectoriesTest, NamesTheTwoFolders) {
    const std::string desktop = "/home/kim/Desktop";
    const std::string downloads = "/home/kim/Downloads";
    const std::vector<Case> cases = {
        {"no file", "", desktop, downloads},
        {"as it is written by default",
         "# This file is written by xdg-user-dirs-update\n"
         "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\nXDG_DOWNLOAD_DIR=\"$HOME/Téléchargements\"\n",
         "/home/kim/Schreibtisch", "/home/kim/Téléchargements"},
        {"one alone", "XDG_DOWNLOAD_DIR=\"$HOME/dl\"", desktop, "/home/kim/dl"},
        {"absolute", "XDG_DESKTOP_DIR=\"/data/desk\"", "/data/desk", downloads},
        {"the root", "XDG_DESKTOP_DIR=\"/\"", "/", downloads},
        {"blanks", " \t XDG_DESKTOP_DIR \t= \t\"$HOME/a b \" # why", "/home/kim/a b ", downloads},
        {"CR LF", "XDG_DESKTOP_DIR=\"$HOME/a\"\r\nXDG_DOWNLOAD_DIR=\"$HOME/b\"\r\n", "/home/kim/a",
         "/home/kim/b"},
        {"slashes at the end", "XDG_DESKTOP_DIR=\"$HOME/a//\"", "/home/kim/a", downloads},
        {"escaped characters", R"(XDG_DESKTOP_DIR="$HOME/a\"b\\c\$d\e")", R"(/home/kim/a"b\c$de)",
         downloads},
        {"bytes", "XDG_DESKTOP_DIR=\"/\xff\xc3%s\"", "/\xff\xc3%s", downloads},
        {"the last one counts", "XDG_DESKTOP_DIR=\"/a\"\nXDG_DESKTOP_DIR=\"/b\"", "/b", downloads},
        {"a line of another form does not", "XDG_DESKTOP_DIR=\"/a\"\nXDG_DESKTOP_DIR=/b", "/a",
         downloads},
        {"the home folder", "XDG_DESKTOP_DIR=\"$HOME\"", desktop, downloads},
        {"the home folder with a slash", "XDG_DESKTOP_DIR=\"$HOME/\"", desktop, downloads},
        {"the home folder in full", "XDG_DESKTOP_DIR=\"/home/kim/\"", desktop, downloads},
        {"the home folder after another", "XDG_DESKTOP_DIR=\"/a\"\nXDG_DESKTOP_DIR=\"$HOME/\"",
         desktop, downloads},
        {"relative", "XDG_DESKTOP_DIR=\"desk\"", desktop, downloads},
        {"another variable", "XDG_DESKTOP_DIR=\"$HOMES/a\"", desktop, downloads},
        {"an escaped variable", "XDG_DESKTOP_DIR=\"\\$HOME/a\"", desktop, downloads},
        {"empty", "XDG_DESKTOP_DIR=\"\"", desktop, downloads},
        {"without quotes", "XDG_DESKTOP_DIR=$HOME/a", desktop, downloads},
        {"without an end", "XDG_DESKTOP_DIR=\"$HOME/a\nXDG_DOWNLOAD_DIR=\"/b\\", desktop,
         downloads},
        {"another name", "XDG_DESKTOP_DIRS=\"/a\"\nMY_XDG_DESKTOP_DIR=\"/b\"", desktop, downloads},
        {"a comment", "#XDG_DESKTOP_DIR=\"/a\"", desktop, downloads},
        {"a zero byte", std::string("XDG_DESKTOP_DIR=\"/a\0b\"", 22), desktop, downloads},
        {"one folder for both", "XDG_DESKTOP_DIR=\"/a\"\nXDG_DOWNLOAD_DIR=\"/a/\"", "/a",
         downloads},
        {"the other's default", "XDG_DESKTOP_DIR=\"$HOME/Downloads\"", downloads, desktop},
        {"both the other's",
         "XDG_DESKTOP_DIR=\"$HOME/Downloads\"\nXDG_DOWNLOAD_DIR=\"$HOME/Desktop\"", downloads,
         desktop},
    };
    for (const auto& tested : cases) {
        EXPECT_THAT(desktopAndDownloads(tested.text, home),
                    ElementsAre(tested.desktop, tested.downloads))
            << tested.description;
    }
}

TEST(UserDirectoriesTest, TheRootCanBeTheHomeFolder) {
    EXPECT_THAT(desktopAndDownloads("XDG_DESKTOP_DIR=\"$HOME/a\"\nXDG_DOWNLOAD_DIR=\"$HOME\"", "/"),
                ElementsAre("/a", "//Downloads"));
}

TEST(UserDirectoriesTest, AnyTextNamesTwoDifferentAbsoluteFolders) {
    const std::vector<std::string> pieces = {"XDG_DESKTOP_DIR",
                                             "XDG_DOWNLOAD_DIR",
                                             "=",
                                             "\"",
                                             "$HOME",
                                             "/",
                                             "/home/kim",
                                             "/Desktop",
                                             "/Downloads",
                                             "\\",
                                             "\n",
                                             "\r\n",
                                             " ",
                                             "\t",
                                             "#",
                                             "a",
                                             std::string(1, '\0'),
                                             "\xff",
                                             "..",
                                             "XDG_DESKTOP_DIR=\"",
                                             "XDG_DOWNLOAD_DIR=\"/"};
    std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same texts in each run
    int named = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (auto count = random() % 24; count > 0; --count) {
            text += pieces[random() % pieces.size()];
        }
        const auto folders = desktopAndDownloads(text, home);
        EXPECT_NE(folders[0], folders[1]) << text;
        for (const auto& folder : folders) {
            EXPECT_TRUE(folder.starts_with('/')) << text;
            EXPECT_NE(folder, home) << text;
            EXPECT_EQ(folder.find('\0'), std::string::npos) << text;
            EXPECT_TRUE(folder == "/" || !folder.ends_with('/')) << text;
        }
        named += folders[0] != "/home/kim/Desktop" ? 1 : 0;
    }
    EXPECT_GT(named, 100);
}

/// Sets a variable while it lives.
class VariableScope {
public:
    VariableScope(const char* name, const std::string& value) : name_(name) {
        const char* before = std::getenv(name);
        before_ = before != nullptr ? before : "";
        ::setenv(name, value.c_str(), 1);
    }
    ~VariableScope() { ::setenv(name_, before_.c_str(), 1); }

private:
    const char* name_;
    std::string before_;
};

TEST(UserDirectoriesTest, TheFileIsReadOnceFromTheFolderOfSettings) {
    const test::TemporaryDirectory directory;
    const VariableScope homeScope("HOME", directory.path());
    const VariableScope configScope("XDG_CONFIG_HOME", directory.path("settings"));
    directory.write(".config/user-dirs.dirs", "XDG_DESKTOP_DIR=\"/wrong\"");
    directory.write("settings/user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"");
    PosixFileManager files;
    const auto first = files.desktopAndDownloads();
    EXPECT_THAT(first, ElementsAre(directory.path("Schreibtisch"), directory.path("Downloads")));
    directory.write("settings/user-dirs.dirs", "XDG_DESKTOP_DIR=\"/other\"");
    EXPECT_EQ(files.desktopAndDownloads(), first);
    EXPECT_EQ(PosixFileManager().desktopAndDownloads()[0], "/other");
}

TEST(UserDirectoriesTest, WithoutAnAbsoluteFolderOfSettingsTheDefaultOneCounts) {
    const test::TemporaryDirectory directory;
    const VariableScope homeScope("HOME", directory.path());
    directory.write(".config/user-dirs.dirs", "XDG_DOWNLOAD_DIR=\"$HOME/dl\"");
    for (const char* config : {"", "relative"}) {
        const VariableScope configScope("XDG_CONFIG_HOME", config);
        EXPECT_EQ(PosixFileManager().desktopAndDownloads()[1], directory.path("dl"));
    }
}

}  // namespace
}  // namespace glintmark::platform
