#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/AtomicFile.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

class AtomicFileTest : public testing::Test {
protected:
    TemporaryDirectory directory_;
};

TEST_F(AtomicFileTest, PutsANewFileInPlaceOfAnOldOne) {
    directory_.createFile("file", "a longer old text");
    for (const auto durability : {Durability::cache, Durability::disk}) {
        EXPECT_TRUE(writeFileAtomically(directory_.path("file"), "new", 0640, durability));
        EXPECT_EQ(directory_.read("file"), "new");
    }
    struct stat status {};
    ASSERT_EQ(::stat(directory_.path("file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(AtomicFileTest, FailsWithoutTheFolder) {
    EXPECT_FALSE(
        writeFileAtomically(directory_.path("missing/file"), "new", 0600, Durability::cache));
}

TEST_F(AtomicFileTest, FailsWhereADirectoryIsAndLeavesNothingBeside) {
    directory_.createDirectories("folder/file/inner");
    EXPECT_FALSE(
        writeFileAtomically(directory_.path("folder/file"), "new", 0600, Durability::cache));
    directory_.remove("folder/file");
    EXPECT_EQ(::rmdir(directory_.path("folder").c_str()), 0);
}

TEST_F(AtomicFileTest, MakesMissingDirectories) {
    EXPECT_TRUE(makeDirectories(directory_.path("a/b/c"), 0700));
    EXPECT_TRUE(makeDirectories(directory_.path("a/b/c"), 0700));
    directory_.createFile("file");
    EXPECT_FALSE(makeDirectories(directory_.path("file"), 0700));
    EXPECT_FALSE(makeDirectories(directory_.path("file/below"), 0700));
}

}  // namespace
}  // namespace glintmark::platform
