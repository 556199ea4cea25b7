#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/watching/MountTable.h"

namespace glintmark::platform {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(MountTableTest, ReadsMountPoints) {
    EXPECT_THAT(parseMountTable("36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw\n"
                                "7 1 0:4 / / rw - ext4 /dev/vda rw\n"),
                ElementsAre(Pair("/mnt2", 36), Pair("/", 7)));
}

TEST(MountTableTest, DecodesEscapes) {
    EXPECT_THAT(parseMountTable("1 1 0:4 / /my\\040stick\\011\\012\\134040 rw - ext4 x rw\n"),
                ElementsAre(Pair("/my stick\t\n\\040", 1)));
    EXPECT_THAT(parseMountTable("1 1 0:4 / /odd\\04 rw - ext4 x rw\n"),
                ElementsAre(Pair("/odd\\04", 1)));
}

TEST(MountTableTest, MalformedLinesAreHarmless) {
    EXPECT_THAT(parseMountTable(""), IsEmpty());
    EXPECT_THAT(parseMountTable("\n1 2\nx"), Contains(Pair("", 1)));
}

TEST(MountTableTest, ReportsNoChangeWhenNothingIsMounted) {
    MountTable table;
    EXPECT_THAT(table.readChanged(), IsEmpty());
}

}  // namespace
}  // namespace glintmark::platform
