#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "platform/linux/FileReplacement.h"
#include "tests/platform/linux/TemporaryFolder.h"

namespace glintmark::platform {
namespace {

std::ptrdiff_t entriesIn(const TemporaryFolder& folder) {
    return std::distance(std::filesystem::directory_iterator(folder.path()), {});
}

TEST(FileReplacementTest, PutsAFileInPlaceForItsUserAlone) {
    const TemporaryFolder folder;
    ASSERT_TRUE(replaceFile(folder / "a", std::string(200'000, 'x')));
    EXPECT_EQ(readFile(folder / "a"), std::string(200'000, 'x'));
    struct stat status {};
    ASSERT_EQ(stat((folder / "a").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(entriesIn(folder), 1);
}

TEST(FileReplacementTest, ReplacesWhatIsThere) {
    const TemporaryFolder folder;
    folder.write("a", "a longer text than the new one");
    ASSERT_TRUE(replaceFile(folder / "a", "new"));
    EXPECT_EQ(folder.read("a"), "new");
}

TEST(FileReplacementTest, AMissingFolderIsAFailure) {
    EXPECT_FALSE(replaceFile("/nowhere/a", "x"));
}

TEST(FileReplacementTest, AFailureLeavesNothingBehind) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "taken");
    EXPECT_FALSE(replaceFile(folder / "taken", "x"));
    EXPECT_EQ(entriesIn(folder), 1);
}

TEST(FileReplacementTest, AFullDiskLeavesTheOldFile) {
    const TemporaryFolder folder;
    folder.write("a", "old");
    // A limit on a file's size stands for the full disk: the write is cut short, then refused.
    struct rlimit before {};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit small = {1000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const bool replaced = replaceFile(folder / "a", std::string(100'000, 'x'));
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, previous);
    EXPECT_FALSE(replaced);
    EXPECT_EQ(folder.read("a"), "old");
    EXPECT_EQ(entriesIn(folder), 1);
}

TEST(FileReplacementTest, WhatCannotBeReadIsEmpty) {
    const TemporaryFolder folder;
    EXPECT_EQ(readFile(folder / "missing"), "");
    EXPECT_EQ(readFile(folder.path()), "");
}

}  // namespace
}  // namespace glintmark::platform
