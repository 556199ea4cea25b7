#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "link/FileWriting.h"
#include "linux/files/PosixFileManager.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::link {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

std::string attribute(const std::string& path, const char* name) {
    std::string value(100, '\0');
    const auto size = getxattr(path.c_str(), name, value.data(), value.size());
    value.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return value;
}

platform::FileIdentity identityOf(const std::string& path) {
    platform::FileIdentity identity;
    platform::PosixFileManager().contents(path, &identity);
    return identity;
}

class FileWritingTest : public testing::Test {
protected:
    const test::TemporaryDirectory& folder() const { return folder_; }

private:
    test::TemporaryDirectory folder_;
};

TEST_F(FileWritingTest, ANewFileIsWholeAndHasOrdinaryPermissions) {
    const mode_t before = umask(022);
    EXPECT_EQ(writeNewFile(folder() / "a", "text", false), Written::done);
    umask(before);
    EXPECT_EQ(folder().read("a"), "text");
    EXPECT_EQ(modeOf(folder() / "a"), 0644U);
    EXPECT_THAT(namesIn(folder().path()), ElementsAre("a"));
}

TEST_F(FileWritingTest, AnotherFileIsReplacedOnlyOnRequest) {
    folder().write("a", "old");
    EXPECT_EQ(writeNewFile(folder() / "a", "new", false), Written::exists);
    EXPECT_EQ(folder().read("a"), "old");
    EXPECT_THAT(namesIn(folder().path()), ElementsAre("a"));
    EXPECT_EQ(writeNewFile(folder() / "a", "new", true), Written::done);
    EXPECT_EQ(folder().read("a"), "new");
}

TEST_F(FileWritingTest, ABrokenLinkIsInTheWayToo) {
    folder().createLink(folder() / "elsewhere", "a");
    EXPECT_EQ(writeNewFile(folder() / "a", "new", false), Written::exists);
    EXPECT_THAT(namesIn(folder().path()), ElementsAre("a"));
}

TEST_F(FileWritingTest, AFailureLeavesNothingBehind) {
    {
        const test::FileSizeLimit limit(3);
        EXPECT_EQ(writeNewFile(folder() / "a", "longer", false), Written::failed);
    }
    EXPECT_THAT(namesIn(folder().path()), ElementsAre());
    EXPECT_EQ(writeNewFile(folder() / "missing/a", "text", false), Written::failed);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileWritingTest, AReplacedFileKeepsItsPermissionsAndAttributes) {
    const std::string path = folder().write("a.desktop", "old");
    chmod(path.c_str(), 0751);
    ASSERT_EQ(setxattr(path.c_str(), "user.origin", "there", 5, 0), 0) << "no attributes here";
    ASSERT_TRUE(replaceFile(path, "new", identityOf(path)));
    EXPECT_EQ(folder().read("a.desktop"), "new");
    EXPECT_EQ(modeOf(path), 0751U);
    EXPECT_EQ(attribute(path, "user.origin"), "there");
    EXPECT_THAT(namesIn(folder().path()), ElementsAre("a.desktop"));
}

TEST_F(FileWritingTest, ASymbolicLinkStaysOne) {
    folder().write("real", "old");
    folder().createLink("real", "a");
    ASSERT_TRUE(replaceFile(folder() / "a", "new", identityOf(folder() / "a")));
    EXPECT_TRUE(std::filesystem::is_symlink(folder() / "a"));
    EXPECT_EQ(folder().read("real"), "new");
}

TEST_F(FileWritingTest, AFileThatWasNotReadIsNotReplaced) {
    const std::string path = folder().write("a", "old");
    const auto read = identityOf(path);
    folder().write("b", "another");
    folder().move("b", "a");
    EXPECT_FALSE(replaceFile(path, "new", read));
    EXPECT_EQ(folder().read("a"), "another");
    folder().remove("a");
    EXPECT_FALSE(replaceFile(path, "new", read));
    EXPECT_THAT(namesIn(folder().path()), ElementsAre());
}

TEST_F(FileWritingTest, AFailedReplacementLeavesTheOldFile) {
    const std::string path = folder().write("a", "old");
    const auto read = identityOf(path);
    {
        const test::FileSizeLimit limit(2);
        EXPECT_FALSE(replaceFile(path, "new", read));
    }
    EXPECT_EQ(folder().read("a"), "old");
    EXPECT_THAT(namesIn(folder().path()), ElementsAre("a"));
}

}  // namespace
}  // namespace glintmark::link
