#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "linux/workspace/AppliedIcons.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::FieldsAre;
using testing::IsEmpty;
using testing::Optional;

const std::string nameA(64, 'a');
const std::string nameB(64, 'b');

TEST(AppliedIconsTest, RemembersTheLatestIconOfEachFile) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "");
    AppliedIcons applied(folder.path());
    applied.add({nameA, "/one.webloc"});
    applied.add({nameA, "/two.webloc"});
    applied.add({nameB, "/one.webloc"});
    EXPECT_THAT(
        AppliedIcons(folder.path()).all(),
        Optional(ElementsAre(FieldsAre(nameA, "/two.webloc"), FieldsAre(nameB, "/one.webloc"))));
}

TEST(AppliedIconsTest, PathsOfAnyBytesComeBack) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "");
    AppliedIcons applied(folder.path());
    const std::string path = "/a b%\n\xFF\xC3\xA9\"'.webloc";
    applied.add({nameA, path});
    EXPECT_THAT(applied.all(), Optional(ElementsAre(FieldsAre(nameA, path))));
}

TEST(AppliedIconsTest, MalformedLinesAreSkipped) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "\n\nnonsense\n" + nameA + "\n" + nameA + " relative\n" +
                                          "short file:///x\n" + nameA + " file:///kept\n" + nameB +
                                          " file:///cut%20short");
    EXPECT_THAT(AppliedIcons(folder.path()).all(),
                Optional(ElementsAre(FieldsAre(nameA, "/kept"), FieldsAre(nameB, "/cut short"))));
}

TEST(AppliedIconsTest, AMissingListIsEmptyAndAMissingFolderIsHarmless) {
    const test::TemporaryDirectory folder;
    AppliedIcons applied(folder.path());
    applied.add({nameA, "/one.webloc"});
    EXPECT_THAT(applied.all(), Optional(IsEmpty()));
}

TEST(AppliedIconsTest, AListThatCannotBeReadIsAbsentAndNotRewritten) {
    const test::TemporaryDirectory folder;
    folder.createDirectories("glintmark/applied");
    AppliedIcons applied(folder.path());
    EXPECT_EQ(applied.all(), std::nullopt);
    applied.filter([](const AppliedIcon&) { return true; });
    EXPECT_TRUE(std::filesystem::is_directory(folder / "glintmark/applied"));
}

TEST(AppliedIconsTest, ALineThatDoesNotFitOnTheDiskDoesNotSpoilTheNext) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "");
    AppliedIcons applied(folder.path());
    applied.add({nameA, "/one.webloc"});
    {
        const test::FileSizeLimit almostFull(folder.read("glintmark/applied").size() +
                                             nameA.size() + 20);
        applied.add({nameA, "/does/not/fit.webloc"});
    }
    applied.add({nameB, "/three.webloc"});
    EXPECT_THAT(applied.all(), Optional(ElementsAre(FieldsAre(nameA, "/one.webloc"),
                                                    FieldsAre(nameB, "/three.webloc"))));
}

TEST(AppliedIconsTest, FilteringKeepsTheChosenEntries) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "");
    AppliedIcons applied(folder.path());
    applied.add({nameA, "/one.webloc"});
    applied.add({nameB, "/two.webloc"});
    applied.filter([](const AppliedIcon& entry) { return entry.name == nameB; });
    EXPECT_EQ(folder.read("glintmark/applied"), nameB + " file:///two.webloc\n");
}

// Two objects are like two processes: they share nothing but the file.

TEST(AppliedIconsTest, ALineThatAnotherProcessAddsDuringAFilteringStays) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "");
    AppliedIcons applied(folder.path());
    AppliedIcons other(folder.path());
    applied.add({nameA, "/one.webloc"});
    applied.filter([&](const AppliedIcon&) {
        other.add({nameB, "/two.webloc"});
        return true;
    });
    EXPECT_THAT(applied.all(), Optional(ElementsAre(FieldsAre(nameA, "/one.webloc"),
                                                    FieldsAre(nameB, "/two.webloc"))));
}

TEST(AppliedIconsTest, NoLineIsLostWhileAnotherProcessFilters) {
    constexpr std::size_t lines = 2000;
    const test::TemporaryDirectory folder;
    folder.write("glintmark/applied", "");
    AppliedIcons other(folder.path());
    std::atomic<bool> isDone = false;
    std::thread adding([&] {
        for (std::size_t i = 0; i < lines; ++i) {
            other.add({nameA, "/" + std::to_string(i)});
        }
        isDone = true;
    });
    AppliedIcons applied(folder.path());
    while (!isDone) {
        applied.filter([](const AppliedIcon&) { return true; });
    }
    adding.join();
    EXPECT_EQ(applied.all().value().size(), lines);
}

}  // namespace
}  // namespace glintmark::platform
