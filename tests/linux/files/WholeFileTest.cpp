#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "linux/files/WholeFile.h"
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
    // A limit on a file's size stands for the full disk: the write is cut short, then refused.
    struct rlimit before {};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit small = {1000, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    const bool written =
        writeFileAtomically(directory_.path("folder/file"), std::string(100'000, 'x'));
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, previous);
    EXPECT_FALSE(written);
    EXPECT_EQ(directory_.read("folder/file"), "old");
    directory_.remove("folder/file");
    EXPECT_EQ(::rmdir(directory_.path("folder").c_str()), 0);
}

TEST_F(WholeFileTest, ReadsAFileWhole) {
    ASSERT_TRUE(writeFileAtomically(directory_.path("file"), std::string(200'000, 'x')));
    EXPECT_EQ(readFile(directory_.path("file")), std::string(200'000, 'x'));
}

TEST_F(WholeFileTest, WhatCannotBeReadIsEmpty) {
    EXPECT_EQ(readFile(directory_.path("missing")), "");
    EXPECT_EQ(readFile(directory_.path()), "");
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
