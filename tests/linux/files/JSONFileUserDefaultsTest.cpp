#include <sys/stat.h>
#include <unistd.h>

#include "linux/files/JSONFileUserDefaults.h"
#include "linux/files/PosixFileManager.h"
#include "tests/platform/UserDefaultsContract.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/Subject.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;

constexpr const char* fileName = "glintmark/defaults.json";

class JSONFileSubject : public UserDefaultsSubject {
public:
    UserDefaults& defaults() override { return *defaults_; }
    void store(const std::string& json) override {
        directory_.createDirectories("glintmark");
        directory_.write(fileName, json);
        defaults_ = open();
    }

private:
    std::unique_ptr<UserDefaults> open() {
        return std::make_unique<JSONFileUserDefaults>(directory_.path(fileName));
    }

    test::TemporaryDirectory directory_;
    std::unique_ptr<UserDefaults> defaults_ = open();
};

INSTANTIATE_TEST_SUITE_P(JSONFile, UserDefaultsContract,
                         testing::Values(&test::makeSubject<UserDefaultsSubject, JSONFileSubject>));

struct DebugLog : Log {
    void write(std::string_view line) override { ADD_FAILURE() << line; }
    void debug(std::string_view line) override { lines.emplace_back(line); }

    std::vector<std::string> lines;
};

class JSONFileUserDefaultsTest : public testing::Test {
protected:
    JSONFileUserDefaults open() { return JSONFileUserDefaults(directory_.path(fileName)); }

    void store(const std::string& text) {
        directory_.createDirectories("glintmark");
        directory_.write(fileName, text);
    }

    std::string stored() { return directory_.read(fileName); }
    std::string keptAside() { return directory_.read(std::string(fileName) + ".bad"); }

    mode_t modeOf(const std::string& name) {
        struct stat status {};
        EXPECT_EQ(::stat(directory_.path(name).c_str(), &status), 0);
        return status.st_mode & 07777U;
    }

    bool isLink(const std::string& name) {
        struct stat status {};
        return ::lstat(directory_.path(name).c_str(), &status) == 0 && S_ISLNK(status.st_mode);
    }

    test::TemporaryDirectory directory_;
};

TEST_F(JSONFileUserDefaultsTest, ReadingWritesNothing) {
    EXPECT_EQ(open().stringArray("extraFolders"), std::nullopt);
    EXPECT_NE(::access(directory_.path("glintmark").c_str(), F_OK), 0);
}

TEST_F(JSONFileUserDefaultsTest, TheNextRunReadsTheValue) {
    open().set("extraFolders", {"/b", "/a"});
    EXPECT_THAT(open().stringArray("extraFolders"), Optional(ElementsAre("/b", "/a")));
    EXPECT_EQ(stored(), "{\n  \"extraFolders\": [\n    \"/b\",\n    \"/a\"\n  ]\n}\n");
}

TEST_F(JSONFileUserDefaultsTest, TheNextRunReadsAnEmptyList) {
    open().set("extraFolders", {});
    EXPECT_THAT(open().stringArray("extraFolders"), Optional(IsEmpty()));
}

TEST_F(JSONFileUserDefaultsTest, OnlyTheUserMayReadFolderAndFile) {
    open().set("extraFolders", {});
    EXPECT_EQ(modeOf("glintmark"), 0700U);
    EXPECT_EQ(modeOf(fileName), 0600U);
}

TEST_F(JSONFileUserDefaultsTest, UnknownKeysKeepTheirValuesAndOrder) {
    store(R"({"z": {"y": [1, 2.5, null]}, "extraFolders": 3, "a": true})");
    open().set("extraFolders", {"/x"});
    const auto text = stored();
    EXPECT_THAT(text, HasSubstr(R"("y": [)"));
    EXPECT_THAT(text, HasSubstr("2.5"));
    EXPECT_THAT(text, HasSubstr("null"));
    EXPECT_THAT(text, HasSubstr(R"("a": true)"));
    EXPECT_LT(text.find("\"z\""), text.find("\"a\""));
}

TEST_F(JSONFileUserDefaultsTest, TheNextRunReadsPathsThatAreNotUTF8) {
    const std::vector<std::string> paths = {"/caf\xE9", "/\xFF\xFE", "/\xE3\x83", "/\xED\xA0\x80"};
    open().set("extraFolders", paths);
    EXPECT_THAT(open().stringArray("extraFolders"), Optional(paths));
}

TEST_F(JSONFileUserDefaultsTest, AnUnreadableFileCountsAsEmptyAndIsKeptAside) {
    const std::string deep(100'000, '[');
    const std::vector<std::string> texts = {
        R"({"extraFolders": ["/a")",
        "",
        "[1]",
        R"("text")",
        "{} trailing",
        "{\"a\": \"\xFF\"}",
        R"({"a": )" + deep + std::string(deep.size(), ']') + "}",
    };
    for (const auto& text : texts) {
        store(text);
        auto defaults = open();
        EXPECT_EQ(defaults.stringArray("extraFolders"), std::nullopt);
        EXPECT_EQ(stored(), text);
        defaults.set("extraFolders", {"/b"});
        defaults.set("extraFolders", {"/c"});
        EXPECT_EQ(keptAside(), text);
        EXPECT_THAT(open().stringArray("extraFolders"), Optional(ElementsAre("/c")));
    }
}

TEST_F(JSONFileUserDefaultsTest, AnUnreadableFileThatCannotBeKeptAsideIsNotReplaced) {
    store("broken");
    directory_.createDirectories(std::string(fileName) + ".bad/occupied");
    auto defaults = open();
    defaults.set("extraFolders", {"/b"});
    EXPECT_EQ(stored(), "broken");
    EXPECT_THAT(defaults.stringArray("extraFolders"), Optional(ElementsAre("/b")));
}

TEST_F(JSONFileUserDefaultsTest, AValueThatCannotBeStoredLastsForThisRun) {
    directory_.write("glintmark");  // where the folder should be
    auto defaults = open();
    defaults.set("extraFolders", {"/a"});
    EXPECT_THAT(defaults.stringArray("extraFolders"), Optional(ElementsAre("/a")));
    EXPECT_EQ(open().stringArray("extraFolders"), std::nullopt);
}

TEST_F(JSONFileUserDefaultsTest, AFailedWriteKeepsTheOldFileAndLeavesNoOther) {
    open().set("extraFolders", {"/old"});
    const auto before = stored();
    auto defaults = open();
    {
        const test::FileSizeLimit fullDisk(0);
        defaults.set("extraFolders", {"/new"});
    }
    EXPECT_EQ(stored(), before);
    EXPECT_THAT(defaults.stringArray("extraFolders"), Optional(ElementsAre("/new")));
    std::size_t names = 0;
    PosixFileManager().contentsOfDirectory(directory_.path("glintmark"), [&](auto) { ++names; });
    EXPECT_EQ(names, 1U);
}

TEST_F(JSONFileUserDefaultsTest, ASymbolicLinkStaysAndItsFileIsReplaced) {
    directory_.createDirectories("glintmark");
    directory_.createDirectories("dotfiles");
    directory_.write("dotfiles/settings", R"({"other": 1})");
    directory_.createLink("settings", "dotfiles/inner");
    directory_.createLink(directory_.path("dotfiles/inner"), fileName);
    open().set("list", {"a"});
    EXPECT_TRUE(isLink(fileName));
    EXPECT_TRUE(isLink("dotfiles/inner"));
    EXPECT_THAT(directory_.read("dotfiles/settings"), HasSubstr("\"other\": 1"));
    EXPECT_THAT(open().stringArray("list"), Optional(ElementsAre("a")));
    EXPECT_EQ(modeOf("dotfiles/settings"), 0600U);
}

TEST_F(JSONFileUserDefaultsTest, TheFileOfADanglingLinkIsMade) {
    directory_.createDirectories("glintmark");
    directory_.createDirectories("dotfiles");
    directory_.createLink("../dotfiles/settings", fileName);
    open().set("list", {"a"});
    EXPECT_TRUE(isLink(fileName));
    EXPECT_THAT(directory_.read("dotfiles/settings"), HasSubstr("\"a\""));
}

TEST_F(JSONFileUserDefaultsTest, AnUnreadableFileBehindALinkIsKeptAsideBesideIt) {
    directory_.createDirectories("glintmark");
    directory_.createDirectories("dotfiles");
    directory_.write("dotfiles/settings", "no JSON");
    directory_.createLink("../dotfiles/settings", fileName);
    open().set("list", {"a"});
    EXPECT_TRUE(isLink(fileName));
    EXPECT_EQ(directory_.read("dotfiles/settings.bad"), "no JSON");
    EXPECT_THAT(open().stringArray("list"), Optional(ElementsAre("a")));
}

TEST_F(JSONFileUserDefaultsTest, AFailureLeavesOneDebugLineAndTheChangeIsInForce) {
    directory_.createDirectories("glintmark");
    const std::pair<const char*, std::string> rows[] = {
        {"defaults.json", "Too many levels of symbolic links"},
        {"missing/settings", "No such file or directory"},
    };
    for (const auto& [target, reason] : rows) {
        directory_.createLink(target, fileName);
        DebugLog log;
        JSONFileUserDefaults defaults(directory_.path(fileName), &log);
        EXPECT_THAT(log.lines, IsEmpty());
        defaults.set("list", {"a"});
        EXPECT_THAT(log.lines, ElementsAre("The settings cannot be written to " +
                                           directory_.path(fileName) + ": " + reason));
        EXPECT_THAT(defaults.stringArray("list"), Optional(ElementsAre("a")));
        EXPECT_TRUE(isLink(fileName));
        ASSERT_EQ(::unlink(directory_.path(fileName).c_str()), 0);
    }
}

}  // namespace
}  // namespace glintmark::platform
