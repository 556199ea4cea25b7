#include <gtest/gtest.h>

#include "watcher/KnownFiles.h"

namespace glintmark {
namespace {

class KnownFilesTest : public testing::Test {
protected:
    KnownFilesTest() {
        for (const auto* path : {"/a", "/b", "/c"}) {
            files_.insert(path);
        }
    }

    KnownFiles files_;
};

TEST_F(KnownFilesTest, FindsWhatWasInserted) {
    EXPECT_EQ(files_.size(), 3U);
    EXPECT_FALSE(KnownFiles().find("/a"));
    EXPECT_TRUE(files_.find("/a"));
    EXPECT_FALSE(files_.find("/d"));
    files_.insert("/d");
    files_.insert("/d");
    EXPECT_TRUE(files_.find("/d"));
    EXPECT_EQ(files_.size(), 4U);
}

TEST_F(KnownFilesTest, FindsInAnyOrder) {
    for (const auto* order : {"abc", "abc", "cba", "acb", "aabbcc", "bca", "abc"}) {
        for (const char* name = order; *name != '\0'; ++name) {
            EXPECT_TRUE(files_.find(std::string("/") + *name)) << order;
            EXPECT_FALSE(files_.find(std::string("/x") + *name)) << order;
        }
    }
}

TEST_F(KnownFilesTest, DoesNotTakeAnotherPathForTheOneThatFollowedLastTime) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(files_.find("/a"));
        EXPECT_TRUE(files_.find("/b"));
    }
    EXPECT_TRUE(files_.find("/a"));
    EXPECT_FALSE(files_.find("/d"));  // as long as "/b", which is expected here
    EXPECT_TRUE(files_.find("/b"));
}

TEST_F(KnownFilesTest, FindsAfterManyInsertions) {
    EXPECT_TRUE(files_.find("/a"));
    EXPECT_TRUE(files_.find("/b"));
    for (int i = 0; i < 1000; ++i) {
        files_.insert("/" + std::to_string(i));  // the table grows
    }
    EXPECT_TRUE(files_.find("/a"));
    EXPECT_TRUE(files_.find("/b"));
    EXPECT_TRUE(files_.find("/999"));
}

}  // namespace
}  // namespace glintmark
