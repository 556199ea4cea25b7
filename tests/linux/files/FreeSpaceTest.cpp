#include <gtest/gtest.h>

#include "linux/files/FreeSpace.h"
#include "tests/support/Mounting.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

struct Row {
    const char* what;
    fsblkcnt_t blocks;
    fsblkcnt_t free;
    fsblkcnt_t available;
    bool hasSpace;
};

TEST(FreeSpaceTest, FivePercentMustBeFreeForTheUser) {
    for (const Row& row : {
             Row{"empty", 1000, 1000, 1000, true},
             Row{"exactly five percent", 1000, 50, 50, true},
             Row{"one block less", 1000, 49, 49, false},
             Row{"full", 1000, 0, 0, false},
             Row{"the rest is reserved for root", 1000, 50, 0, false},
             Row{"reserved blocks do not count", 1050, 100, 50, true},
             Row{"unknown size", 0, 0, 0, true},
         }) {
        struct statvfs status {};
        status.f_blocks = row.blocks;
        status.f_bfree = row.free;
        status.f_bavail = row.available;
        EXPECT_EQ(hasFreeSpace(status), row.hasSpace) << row.what;
    }
}

TEST(FreeSpaceTest, AFolderThatIsMissingIsOnTheFileSystemOfItsParent) {
    if (!test::mayMount()) {
        GTEST_SKIP() << "mounting takes root";
    }
    const test::TemporaryDirectory folder;
    test::withMount(folder.path(), "tmpfs", "size=1000k", [&] {
        EXPECT_TRUE(hasFreeSpace(folder / "missing/deep"));
        folder.write("file", std::string(980'000, 'x'));
        EXPECT_FALSE(hasFreeSpace(folder.path()));
        EXPECT_FALSE(hasFreeSpace(folder / "missing/deep"));
    });
}

TEST(FreeSpaceTest, AFileSystemThatDoesNotAnswerIsTriedAllTheSame) {
    EXPECT_TRUE(hasFreeSpace(""));
    EXPECT_TRUE(hasFreeSpace("/proc"));
}

}  // namespace
}  // namespace glintmark::platform
