#include <gtest/gtest.h>

#include "base/system/FilePath.h"

namespace glintmark {
namespace {

TEST(FilePathTest, AppendsAComponentAfterExactlyOneSlash) {
    EXPECT_EQ(appendPathComponent("/home/kim/Desktop", "a.webloc"), "/home/kim/Desktop/a.webloc");
    EXPECT_EQ(appendPathComponent("/home/kim/Desktop/", "a.webloc"), "/home/kim/Desktop/a.webloc");
    EXPECT_EQ(appendPathComponent("/home//kim///", "a"), "/home//kim/a");
    EXPECT_EQ(appendPathComponent("/", "a"), "/a");
    EXPECT_EQ(appendPathComponent("///", "a"), "/a");
    EXPECT_EQ(appendPathComponent("/x", "\xFF\n%d"), "/x/\xFF\n%d");
}

}  // namespace
}  // namespace glintmark
