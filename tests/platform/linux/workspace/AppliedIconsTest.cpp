#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/workspace/AppliedIcons.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::FieldsAre;
using testing::IsEmpty;

const std::string nameA(64, 'a');
const std::string nameB(64, 'b');

TEST(AppliedIconsTest, RemembersTheLatestIconOfEachFile) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "");
    AppliedIcons applied(folder.path());
    applied.add({nameA, "/one.webloc"});
    applied.add({nameA, "/two.webloc"});
    applied.add({nameB, "/one.webloc"});
    EXPECT_THAT(AppliedIcons(folder.path()).all(),
                ElementsAre(FieldsAre(nameA, "/two.webloc"), FieldsAre(nameB, "/one.webloc")));
}

TEST(AppliedIconsTest, PathsOfAnyBytesComeBack) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "");
    AppliedIcons applied(folder.path());
    const std::string path = "/a b%\n\xFF\xC3\xA9\"'.webloc";
    applied.add({nameA, path});
    EXPECT_THAT(applied.all(), ElementsAre(FieldsAre(nameA, path)));
}

TEST(AppliedIconsTest, LinesThatAreNoneAreLeftOut) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "\n\nnonsense\n" + nameA + "\n" + nameA + " relative\n" +
                                          "short file:///x\n" + nameA + " file:///kept\n" + nameB +
                                          " file:///cut%20short");
    EXPECT_THAT(AppliedIcons(folder.path()).all(),
                ElementsAre(FieldsAre(nameA, "/kept"), FieldsAre(nameB, "/cut short")));
}

TEST(AppliedIconsTest, AMissingListIsEmptyAndAMissingFolderIsHarmless) {
    const test::TemporaryDirectory folder;
    AppliedIcons applied(folder.path());
    applied.add({nameA, "/one.webloc"});
    EXPECT_THAT(applied.all(), IsEmpty());
}

TEST(AppliedIconsTest, ReducingKeepsWhatIsAskedFor) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "");
    AppliedIcons applied(folder.path());
    applied.add({nameA, "/one.webloc"});
    applied.add({nameB, "/two.webloc"});
    applied.reduce([](const AppliedIcon& entry) { return entry.name == nameB; });
    EXPECT_EQ(folder.read("glintmark/applied"), nameB + " file:///two.webloc\n");
}

}  // namespace
}  // namespace glintmark::platform
