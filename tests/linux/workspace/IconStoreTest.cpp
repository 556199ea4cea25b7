#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>

#include "linux/workspace/IconStore.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WholeFile.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

void setTimes(const std::string& path, time_t read, time_t written) {
    const struct timespec times[2] = {{read, 0}, {written, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

TEST(IconStoreTest, StoresAPictureUnderTheHashOfItsBytes) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path());
    const auto name = store.put("abc");
    // The SHA-256 of "abc" is the first example of FIPS 180-2, appendix B.
    ASSERT_EQ(name, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(store.pathOf(*name), folder / "glintmark/icons/" + *name + ".png");
    EXPECT_EQ(test::wholeFile(store.pathOf(*name)), "abc");
    struct stat status {};
    ASSERT_EQ(stat(store.pathOf(*name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(IconStoreTest, APictureIsStoredOnceAndMarkedAsUsedAgain) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path());
    const std::string path = store.pathOf(*store.put("abc"));
    struct stat first {};
    setTimes(path, 1000, 1000);
    ASSERT_EQ(stat(path.c_str(), &first), 0);
    store.put("abc");
    struct stat second {};
    ASSERT_EQ(stat(path.c_str(), &second), 0);
    EXPECT_EQ(second.st_ino, first.st_ino);
    EXPECT_EQ(second.st_mtim.tv_sec, 1000);
    EXPECT_GT(second.st_atim.tv_sec, 1000);
    EXPECT_THAT(store.unusedSince(2000), IsEmpty());
}

TEST(IconStoreTest, APictureCutShortByACrashIsWrittenAgain) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path());
    const std::string path = store.pathOf(*store.put("abc"));
    std::filesystem::resize_file(path, 0);
    store.put("abc");
    EXPECT_EQ(test::wholeFile(path), "abc");
}

TEST(IconStoreTest, AFolderThatCannotBeMadeStoresNothing) {
    const test::TemporaryDirectory folder;
    folder.write("glintmark", "a file where the folder should be");
    IconStore store(folder.path());
    EXPECT_EQ(store.put("abc"), std::nullopt);
}

TEST(IconStoreTest, ANameIsSixtyFourLowerCaseDigits) {
    EXPECT_TRUE(IconStore::isName("9af0" + std::string(60, '0')));
    for (const auto& text :
         {std::string(), std::string(63, 'a'), std::string(65, 'a'), std::string(64, 'A'),
          std::string(64, 'g'), "../" + std::string(61, 'a'), std::string(64, '\0')}) {
        EXPECT_FALSE(IconStore::isName(text)) << text;
    }
}

TEST(IconStoreTest, OnlyPicturesNeitherReadNorWrittenAreUnused) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path());
    const auto idle = store.put("idle");
    const auto read = store.put("read");
    const auto written = store.put("written");
    setTimes(store.pathOf(*idle), 100, 100);
    setTimes(store.pathOf(*read), 900, 100);
    setTimes(store.pathOf(*written), 100, 900);
    folder.write("glintmark/icons/" + std::string(64, 'a') + ".txt");
    folder.write("glintmark/icons/notes.png");
    EXPECT_THAT(store.unusedSince(500), ElementsAre(*idle));
    EXPECT_THAT(store.unusedSince(100), IsEmpty());
}

TEST(IconStoreTest, APictureUsedMeanwhileIsNotRemoved) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path());
    const auto name = store.put("abc");
    setTimes(store.pathOf(*name), 100, 100);
    store.put("abc");
    store.removeUnused(*name, 500);
    EXPECT_TRUE(std::filesystem::exists(store.pathOf(*name)));
    setTimes(store.pathOf(*name), 100, 100);
    store.removeUnused(*name, 500);
    EXPECT_FALSE(std::filesystem::exists(store.pathOf(*name)));
    store.removeUnused(*name, 500);  // does nothing when the picture is gone
}

constexpr std::uint64_t block = 4096;  // bytes; every file counts as whole blocks

TEST(IconStoreTest, APictureForWhichThereIsNoRoomIsNotStored) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path(), 3 * block);
    EXPECT_TRUE(store.hasRoomFor(3 * block));
    EXPECT_FALSE(store.hasRoomFor(3 * block + 1));
    const auto one = store.put(std::string(block + 1, '1'));
    ASSERT_TRUE(one);
    EXPECT_TRUE(store.hasRoomFor(block));
    EXPECT_EQ(store.put(std::string(block + 1, '2')), std::nullopt);
    EXPECT_TRUE(store.put(std::string(block, '3')));
    EXPECT_FALSE(store.hasRoomFor(1));
    EXPECT_EQ(store.put(std::string(block + 1, '1')), one) << "stored already";
}

TEST(IconStoreTest, TheFilesOfAnEarlierRunCount) {
    const test::TemporaryDirectory folder;
    IconStore(folder.path()).put("abc");
    folder.write("glintmark/icons/b.png.Xy12zZ.part", "unfinished");
    IconStore store(folder.path(), 3 * block);
    EXPECT_TRUE(store.hasRoomFor(block));
    EXPECT_FALSE(store.hasRoomFor(block + 1));
}

TEST(IconStoreTest, ARemovedPictureMakesRoom) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path(), block);
    const auto name = store.put("abc");
    EXPECT_FALSE(store.hasRoomFor(1));
    setTimes(store.pathOf(*name), 100, 100);
    store.removeUnused(*name, 500);
    EXPECT_TRUE(store.hasRoomFor(block));
}

TEST(IconStoreTest, APictureCutShortByACrashCountsOnce) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path(), 2 * block);
    const auto name = store.put(std::string(2 * block, 'x'));
    std::filesystem::resize_file(store.pathOf(*name), block);
    IconStore later(folder.path(), 2 * block);
    EXPECT_EQ(later.put(std::string(2 * block, 'x')), name);
    EXPECT_FALSE(later.hasRoomFor(1));
}

TEST(IconStoreTest, FilesThatAnotherProgramRemovedCountUntilTheNextSweep) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path(), block);
    std::filesystem::remove(store.pathOf(*store.put("abc")));
    EXPECT_FALSE(store.hasRoomFor(1));
    store.removeUnfinished(0);
    EXPECT_TRUE(store.hasRoomFor(1));
}

TEST(IconStoreTest, PicturesAreOrderedByTheirLastUse) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path());
    const auto second = store.put("second");
    const auto first = store.put("first");
    const auto third = store.put("third");
    setTimes(store.pathOf(*first), 100, 200);
    setTimes(store.pathOf(*second), 300, 100);
    setTimes(store.pathOf(*third), 100, 400);
    std::vector<std::string> names;
    for (const auto& picture : store.byLastUse()) {
        names.push_back(picture.name);
    }
    EXPECT_THAT(names, ElementsAre(*first, *second, *third));
}

TEST(IconStoreTest, WhatACrashLeftUnfinishedIsRemovedAfterADay) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path());
    const std::string old = folder.write("glintmark/icons/a.png.Xy12zZ.part");
    const std::string fresh = folder.write("glintmark/icons/b.png.Xy12zZ.part");
    setTimes(old, 1000, 1000);
    setTimes(fresh, 50'000, 50'000);
    store.removeUnfinished(1000 + 24 * 3600 + 1);
    EXPECT_FALSE(std::filesystem::exists(old));
    EXPECT_TRUE(std::filesystem::exists(fresh));
}

TEST(IconStoreTest, AFileKeepsItsIconsNameWhenItMoves) {
    const test::TemporaryDirectory folder;
    const std::string file = folder.write("a.webloc");
    const std::string name(64, 'b');
    if (!writeIconName(file, name)) {
        GTEST_SKIP() << "no extended attributes here";
    }
    std::filesystem::create_directory(folder / "elsewhere");
    std::filesystem::rename(file, folder / "elsewhere/c.webloc");
    EXPECT_EQ(readIconName(folder / "elsewhere/c.webloc"), name);
}

TEST(IconStoreTest, AnAttributeThatIsNotANameIsAbsent) {
    const test::TemporaryDirectory folder;
    const std::string file = folder.write("a.webloc");
    EXPECT_EQ(readIconName(file), std::nullopt);
    if (!writeIconName(file, "../../etc/passwd")) {
        GTEST_SKIP() << "no extended attributes here";
    }
    EXPECT_EQ(readIconName(file), std::nullopt);
    writeIconName(file, std::string(65, 'a'));
    EXPECT_EQ(readIconName(file), std::nullopt);
    writeIconName(file, "");
    EXPECT_EQ(readIconName(file), std::nullopt);
    EXPECT_FALSE(writeIconName(folder / "missing", std::string(64, 'a')));
}

}  // namespace
}  // namespace glintmark::platform
