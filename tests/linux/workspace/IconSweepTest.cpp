#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "linux/workspace/IconSweep.h"
#include "tests/linux/MainLoop.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

int attributeError = 0;  // the errno with which reading an attribute fails; 0: it works

}  // namespace

// Replaces the C library's function in this whole program.
extern "C" ssize_t getxattr(const char* path, const char* name, void* value,
                            std::size_t size) noexcept {
    if (attributeError != 0) {
        errno = attributeError;
        return -1;
    }
    return syscall(SYS_getxattr, path, name, value, size);
}

namespace glintmark::platform {
namespace {

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

TEST_F(IconSweepTest, TheSweeperRemovesIconsOnItsOwnThread) {
    const std::string name = storePicture("picture");
    std::filesystem::remove(applyTo("home/Desktop/a.webloc", name));
    IconSweeper sweeper(sweep_);
    sweeper.sweepNow();
    EXPECT_TRUE(waitUntil([&] { return !isStored(name); }));
}

}  // namespace
}  // namespace glintmark::platform
