#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <limits>

#include "base/system/FileDescriptor.h"
#include "linux/files/WholeFile.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

class WholeFileTest : public testing::Test {
protected:
    test::TemporaryDirectory directory_;
};

TEST_F(WholeFileTest, PutsANewFileInPlaceOfAnOldOne) {
    directory_.write("file", "a longer old text");
    for (const auto durability : {Durability::cache, Durability::disk}) {
        EXPECT_TRUE(writeFileAtomically(directory_.path("file"), "new", 0640, durability));
        EXPECT_EQ(directory_.read("file"), "new");
    }
    struct stat status {};
    ASSERT_EQ(::stat(directory_.path("file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(WholeFileTest, GivesAFileASecondNameInPlaceOfAnotherFile) {
    const auto file = directory_.write("file", "new");
    const auto other = directory_.write("folder/other", "old");
    for (int i = 0; i < 2; ++i) {  // the second time it is a name of the file already
        EXPECT_TRUE(linkFileAtomically(file, other));
        EXPECT_TRUE(std::filesystem::equivalent(file, other));
        EXPECT_EQ(std::filesystem::hard_link_count(file), 2U) << "nothing is left beside";
    }
    EXPECT_TRUE(writeFileAtomically(file, "newer"));
    EXPECT_EQ(directory_.read("folder/other"), "new");
    EXPECT_TRUE(linkFileAtomically(file, other));
    EXPECT_EQ(directory_.read("folder/other"), "newer");
}

TEST_F(WholeFileTest, AFileThatCannotGetASecondNameLeavesTheOldOne) {
    directory_.createDirectories("folder/inner");
    EXPECT_FALSE(linkFileAtomically(directory_.write("file"), directory_.path("folder")));
    EXPECT_FALSE(linkFileAtomically("/proc/self/status", directory_.write("other", "old")));
    EXPECT_FALSE(linkFileAtomically(directory_.path("missing"), directory_.path("other")));
    EXPECT_EQ(directory_.read("other"), "old");
    directory_.remove("folder");
    directory_.remove("file");
    directory_.remove("other");
    EXPECT_EQ(::rmdir(directory_.path().c_str()), 0) << "nothing is left beside";
}

TEST_F(WholeFileTest, FillsAFileInPlace) {
    const auto path = directory_.write("file", "a longer old text");
    struct stat before {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    EXPECT_TRUE(writeFileInPlace(path, "new"));
    struct stat after {};
    ASSERT_EQ(::stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(directory_.read("file"), "new");
    EXPECT_TRUE(writeFileInPlace(directory_.path("another"), "made"));
    EXPECT_EQ(directory_.read("another"), "made");
    EXPECT_FALSE(writeFileInPlace(directory_.path("missing/file"), "new"));
}

TEST_F(WholeFileTest, FailsWithoutTheFolder) {
    EXPECT_FALSE(
        writeFileAtomically(directory_.path("missing/file"), "new", 0600, Durability::cache));
}

TEST_F(WholeFileTest, FailsWhereADirectoryIsAndLeavesNothingBeside) {
    directory_.createDirectories("folder/file/inner");
    EXPECT_FALSE(
        writeFileAtomically(directory_.path("folder/file"), "new", 0600, Durability::cache));
    directory_.remove("folder/file");
    EXPECT_EQ(::rmdir(directory_.path("folder").c_str()), 0);
}

TEST_F(WholeFileTest, AFullDiskLeavesTheOldFileAndNothingBeside) {
    directory_.write("folder/file", "old");
    {
        const test::FileSizeLimit fullDisk(1000);
        EXPECT_FALSE(
            writeFileAtomically(directory_.path("folder/file"), std::string(100'000, 'x')));
    }
    EXPECT_EQ(directory_.read("folder/file"), "old");
    directory_.remove("folder/file");
    EXPECT_EQ(::rmdir(directory_.path("folder").c_str()), 0);
}

TEST_F(WholeFileTest, ReadsAFileWhole) {
    ASSERT_TRUE(writeFileAtomically(directory_.path("file"), std::string(200'000, 'x')));
    EXPECT_EQ(readFile(directory_.path("file")), std::string(200'000, 'x'));
}

TEST_F(WholeFileTest, AFileThatCannotBeReadCountsAsEmpty) {
    EXPECT_EQ(readFile(directory_.path("missing")), "");
    EXPECT_EQ(readFile(directory_.path()), "");
}

TEST_F(WholeFileTest, ReadsAnOpenFileWhateverSizeIsExpected) {
    const std::string bytes(100'000, 'x');
    const auto path = directory_.write("file", bytes);
    for (const std::size_t expected : {std::size_t{0}, bytes.size(), 2 * bytes.size()}) {
        const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(readToEnd(file.get(), expected), bytes);
    }
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(readToEnd(file.get(), bytes.size(), 1000)->size(), 1000U);
    EXPECT_EQ(readToEnd(-1, 0), std::nullopt);
}

TEST_F(WholeFileTest, WithoutMemoryThereIsNoTextAndNoCrash) {
    const FileDescriptor file(::open(directory_.write("file").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(readToEnd(file.get(), std::numeric_limits<std::size_t>::max() / 2), std::nullopt);
}

TEST_F(WholeFileTest, MakesMissingDirectories) {
    EXPECT_TRUE(makeDirectories(directory_.path("a/b/c"), 0700));
    EXPECT_TRUE(makeDirectories(directory_.path("a/b/c"), 0700));
    directory_.write("file");
    EXPECT_FALSE(makeDirectories(directory_.path("file"), 0700));
    EXPECT_FALSE(makeDirectories(directory_.path("file/below"), 0700));
}

}  // namespace
}  // namespace glintmark::platform
