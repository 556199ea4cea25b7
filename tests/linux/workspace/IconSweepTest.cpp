#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <mutex>
#include <thread>

#include "linux/workspace/IconSweep.h"
#include "tests/linux/MainLoop.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

std::mutex attributeMutex;  // held while an attribute is read
int attributeError = 0;     // the errno with which reading an attribute fails; 0: it works

}  // namespace

// Replaces the C library's function in this whole program.
extern "C" ssize_t getxattr(const char* path, const char* name, void* value,
                            std::size_t size) noexcept {
    const std::scoped_lock lock(attributeMutex);
    if (attributeError != 0) {
        errno = attributeError;
        return -1;
    }
    return syscall(SYS_getxattr, path, name, value, size);
}

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

constexpr std::time_t stored = 1'700'000'000;
constexpr std::time_t day = 86'400;
constexpr std::time_t longAfter = stored + 31 * day;

class IconSweepTest : public testing::Test {
protected:
    ~IconSweepTest() override { attributeError = 0; }

    void SetUp() override {
        if (!writeIconName(folder_.write("probe"), std::string(64, '0'))) {
            GTEST_SKIP() << "no extended attributes here";
        }
    }

    /// A picture in the store that was last used at `stored`.
    std::string storePicture(const std::string& bytes) {
        std::string name = store_.put(bytes).value();
        const struct timespec times[2] = {{stored, 0}, {stored, 0}};
        utimensat(AT_FDCWD, store_.pathOf(name).c_str(), times, 0);
        return name;
    }

    /// Makes a link file whose icon is the picture `name`, as the program does.
    std::string applyTo(const std::string& file, const std::string& name) {
        std::string path = folder_.write(file);
        writeIconName(path, name);
        applied_.add({name, path});
        return path;
    }

    bool isStored(const std::string& name) const {
        return std::filesystem::exists(store_.pathOf(name));
    }

    void sweep(std::time_t now) { sweep_.run(now, stopping_); }

    test::TemporaryDirectory folder_;
    IconStore store_{folder_ / "data"};
    AppliedIcons applied_{folder_ / "data"};
    std::atomic<bool> stopping_ = false;
    IconSweep sweep_{store_, applied_, folder_ / "home"};
};

TEST_F(IconSweepTest, AnIconWhoseFileIsGoneIsRemovedAfterThirtyDays) {
    const std::string name = storePicture("picture");
    const std::string path = applyTo("home/Desktop/a.webloc", name);
    std::filesystem::remove(path);
    sweep(stored + 30 * day - 1);
    EXPECT_TRUE(isStored(name));
    sweep(longAfter);
    EXPECT_FALSE(isStored(name));
    EXPECT_TRUE(applied_.all().value().empty());
}

TEST_F(IconSweepTest, AnIconThatAFileUsesIsKept) {
    const std::string name = storePicture("picture");
    applyTo("elsewhere/a.webloc", name);
    std::filesystem::create_directories(folder_ / "home");
    sweep(longAfter);
    EXPECT_TRUE(isStored(name));
}

TEST_F(IconSweepTest, AnIconThatWasReplacedInEveryFileIsRemoved) {
    const std::string first = storePicture("first");
    const std::string second = storePicture("second");
    applyTo("home/Desktop/a.webloc", first);
    applyTo("home/Desktop/a.webloc", second);
    sweep(longAfter);
    EXPECT_FALSE(isStored(first));
    EXPECT_TRUE(isStored(second));
}

TEST_F(IconSweepTest, AnIconStaysWhileOneOfItsFilesIsLeft) {
    const std::string name = storePicture("picture");
    std::filesystem::remove(applyTo("home/Desktop/a.webloc", name));
    applyTo("other/b.webloc", name);
    sweep(longAfter);
    EXPECT_TRUE(isStored(name));
}

TEST_F(IconSweepTest, AFileMovedWithinTheHomeFolderKeepsItsIcon) {
    const std::string name = storePicture("picture");
    const std::string path = applyTo("home/Desktop/a.webloc", name);
    std::filesystem::create_directories(folder_ / "home/deep/.hidden/down");
    std::filesystem::rename(path, folder_ / "home/deep/.hidden/down/renamed.webloc");
    sweep(longAfter);
    EXPECT_TRUE(isStored(name));
}

TEST_F(IconSweepTest, AFolderNamedLikeALinkFileKeepsItsIcon) {
    const std::string name = storePicture("picture");
    std::filesystem::create_directories(folder_ / "home/folder.webloc");
    writeIconName(folder_ / "home/folder.webloc", name);
    sweep(longAfter);
    EXPECT_TRUE(isStored(name));
}

TEST_F(IconSweepTest, AnIconOnADiskThatIsNotMountedIsKept) {
    const std::string name = storePicture("picture");
    applyTo("disk/Links/a.webloc", name);
    std::filesystem::create_directories(folder_ / "home");
    std::filesystem::remove_all(folder_ / "disk/Links");
    sweep(longAfter);
    EXPECT_TRUE(isStored(name));
}

TEST_F(IconSweepTest, NothingIsRemovedWhenTheHomeFolderCannotBeRead) {
    const std::string name = storePicture("picture");
    std::filesystem::remove(applyTo("other/a.webloc", name));
    sweep(longAfter);
    EXPECT_TRUE(isStored(name));
}

TEST_F(IconSweepTest, NothingIsRemovedWhenTheListOfFilesCannotBeRead) {
    const std::string name = storePicture("picture");
    folder_.createDirectories("home");
    folder_.createDirectories("data/glintmark/applied");
    sweep(longAfter);
    EXPECT_TRUE(isStored(name));
}

TEST_F(IconSweepTest, NothingIsRemovedWhenReadingAnIconsNameFails) {
    const std::string name = storePicture("picture");
    std::filesystem::remove(applyTo("other/a.webloc", name));
    folder_.write("home/unread.webloc");
    attributeError = EIO;
    sweep(longAfter);
    EXPECT_TRUE(isStored(name));
    attributeError = ENODATA;
    sweep(longAfter);
    EXPECT_FALSE(isStored(name));
}

TEST_F(IconSweepTest, ARecordedFileWhoseIconCannotBeReadKeepsIt) {
    const std::string name = storePicture("picture");
    applyTo("other/a.webloc", name);
    folder_.createDirectories("home");
    attributeError = EIO;
    sweep(longAfter);
    EXPECT_TRUE(isStored(name));
}

TEST_F(IconSweepTest, ASweepThatIsStoppedRemovesNothing) {
    const std::string name = storePicture("picture");
    std::filesystem::remove(applyTo("home/Desktop/a.webloc", name));
    stopping_ = true;
    sweep(longAfter);
    EXPECT_TRUE(isStored(name));
}

/// A store that holds sixteen pictures of one block. It is relieved when fourteen are left.
class FullStoreTest : public IconSweepTest {
protected:
    static constexpr std::uint64_t block = 4096;

    void SetUp() override {
        IconSweepTest::SetUp();
        folder_.createDirectories("home");
        for (int i = 0; i < 16; ++i) {
            names_.push_back(store_.put(std::to_string(i)).value());
            useAt(i, stored + i);
        }
        ASSERT_FALSE(store_.hasRoomFor(1));
    }

    void useAt(int picture, std::time_t time) {
        const struct timespec times[2] = {{time, 0}, {time, 0}};
        const std::string path = store_.pathOf(nameOf(picture));
        utimensat(AT_FDCWD, path.c_str(), times, 0);
    }

    const std::string& nameOf(int picture) const {
        return names_[static_cast<std::size_t>(picture)];
    }

    std::vector<int> removed() const {
        std::vector<int> pictures;
        for (int i = 0; i < 16; ++i) {
            if (!isStored(nameOf(i))) {
                pictures.push_back(i);
            }
        }
        return pictures;
    }

    IconStore store_{folder_ / "data", 16 * block};
    IconSweep sweep_{store_, applied_, folder_ / "home"};
    std::vector<std::string> names_;
};

TEST_F(FullStoreTest, TheLeastRecentlyUsedIconsGoFirst) {
    useAt(0, stored + 100);
    sweep_.makeRoom(stopping_);
    EXPECT_THAT(removed(), ElementsAre(1, 2));
    EXPECT_TRUE(store_.isRelieved());
}

TEST_F(FullStoreTest, AnIconThatAFileUsesGoesOnlyWhenNothingElseIsLeft) {
    for (int i = 0; i < 15; ++i) {
        applyTo("elsewhere/" + std::to_string(i) + ".webloc", nameOf(i));
    }
    sweep_.makeRoom(stopping_);
    EXPECT_THAT(removed(), ElementsAre(0, 15));
    EXPECT_EQ(applied_.all()->size(), 14U);
}

TEST_F(FullStoreTest, AFileThatWasMovedUsesItsIcon) {
    const std::string path = applyTo("home/Desktop/a.webloc", nameOf(0));
    folder_.createDirectories("home/elsewhere");
    folder_.move("home/Desktop/a.webloc", "home/elsewhere/b.webloc");
    sweep_.makeRoom(stopping_);
    EXPECT_THAT(removed(), ElementsAre(1, 2));
}

TEST_F(FullStoreTest, InDoubtTheLeastRecentlyUsedGoAllTheSame) {
    folder_.remove("home");
    sweep_.makeRoom(stopping_);
    EXPECT_THAT(removed(), ElementsAre(0, 1));
}

TEST_F(FullStoreTest, ASearchThatIsStoppedRemovesNothing) {
    stopping_ = true;
    sweep_.makeRoom(stopping_);
    EXPECT_THAT(removed(), ElementsAre());
}

TEST_F(FullStoreTest, TheSweeperMakesRoomAndWaitsForIt) {
    IconSweeper sweeper(sweep_);
    sweeper.makeRoomFor(1);
    EXPECT_THAT(removed(), ElementsAre(0, 1));
}

TEST_F(FullStoreTest, ManyThreadsThatNeedRoomMakeItOnce) {
    IconSweeper sweeper(sweep_);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] { sweeper.makeRoomFor(1); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(removed(), ElementsAre(0, 1));
}

TEST_F(FullStoreTest, ASearchThatHangsIsNotAwaitedForLong) {
    applyTo("elsewhere/a.webloc", nameOf(15));
    IconSweeper sweeper(sweep_, std::chrono::milliseconds(1));
    {
        const std::scoped_lock hanging(attributeMutex);
        sweeper.makeRoomFor(1);
        sweeper.makeRoomFor(1);
        EXPECT_THAT(removed(), ElementsAre());
    }
    EXPECT_TRUE(waitUntil([this] { return removed() == std::vector{0, 1}; }));
}

TEST_F(IconSweepTest, TheSweeperRemovesIconsOnItsOwnThread) {
    const std::string name = storePicture("picture");
    std::filesystem::remove(applyTo("home/Desktop/a.webloc", name));
    IconSweeper sweeper(sweep_);
    sweeper.sweepNow();
    EXPECT_TRUE(waitUntil([&] { return !isStored(name); }));
}

}  // namespace
}  // namespace glintmark::platform
