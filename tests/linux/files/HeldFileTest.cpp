#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "linux/files/HeldFile.h"
#include "linux/files/PosixFileManager.h"
#include "tests/linux/Unprivileged.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

namespace fs = std::filesystem;

class HeldFileTest : public testing::Test {
protected:
    static FileIdentity identityOf(const std::string& path) {
        FileIdentity identity;
        EXPECT_TRUE(PosixFileManager().contents(path, &identity)) << path;
        return identity;
    }

    static bool isWhatWasRead(const std::string& path, const FileIdentity& read) {
        const auto file = HeldFile::at(path);
        return file && file->isWhatWasRead(read);
    }

    const test::TemporaryDirectory folder_;
    const std::string path_ = folder_.write("shared/a.webloc", "link");
    const std::string document_ = folder_.write("home/report.pdf", "document");
};

TEST_F(HeldFileTest, AFileStaysTheOneThatWasReadWhenItIsWrittenAgain) {
    const FileIdentity read = identityOf(path_);
    folder_.write("shared/a.webloc", "another link");
    EXPECT_TRUE(isWhatWasRead(path_, read));
}

TEST_F(HeldFileTest, ASaveThatRenamesLeavesAReplacement) {
    const FileIdentity read = identityOf(path_);
    folder_.write("shared/.a.webloc.new", "another link");
    folder_.move("shared/.a.webloc.new", "shared/a.webloc");
    EXPECT_TRUE(isWhatWasRead(path_, read));
}

TEST_F(HeldFileTest, ALinkPutInPlaceOfTheFileLeadsToAnotherFile) {
    const FileIdentity read = identityOf(path_);
    folder_.remove("shared/a.webloc");
    folder_.createLink(document_, "shared/a.webloc");
    EXPECT_FALSE(isWhatWasRead(path_, read));
}

TEST_F(HeldFileTest, AHardLinkPutInPlaceOfTheFileIsAnotherFile) {
    const FileIdentity read = identityOf(path_);
    folder_.remove("shared/a.webloc");
    fs::create_hard_link(document_, path_);
    EXPECT_FALSE(isWhatWasRead(path_, read));
}

TEST_F(HeldFileTest, AFileThatHadTwoNamesWhenItWasReadIsStillTheOne) {
    fs::create_hard_link(path_, folder_ / "shared/b.webloc");
    EXPECT_TRUE(isWhatWasRead(path_, identityOf(path_)));
}

TEST_F(HeldFileTest, AFolderReplacedByALinkHoldsOtherFiles) {
    const FileIdentity read = identityOf(path_);
    folder_.write("home/a.webloc", "the user's own");
    folder_.move("shared", "away");
    folder_.createLink("home", "shared");
    EXPECT_FALSE(isWhatWasRead(path_, read));
}

TEST_F(HeldFileTest, AFileReadThroughALinkMustBeTheSameOne) {
    folder_.createLink(path_, "home/link.webloc");
    const std::string link = folder_ / "home/link.webloc";
    const FileIdentity read = identityOf(link);
    EXPECT_TRUE(isWhatWasRead(link, read));

    folder_.write("shared/.new", "another link");
    folder_.move("shared/.new", "shared/a.webloc");
    EXPECT_FALSE(isWhatWasRead(link, read));
}

TEST_F(HeldFileTest, ALinkThatLeadsElsewhereByNowIsRefused) {
    folder_.createLink(path_, "home/link.webloc");
    const FileIdentity read = identityOf(folder_ / "home/link.webloc");
    folder_.remove("home/link.webloc");
    folder_.createLink(document_, "home/link.webloc");
    EXPECT_FALSE(isWhatWasRead(folder_ / "home/link.webloc", read));
}

TEST_F(HeldFileTest, OnlyARegularFileCanReplaceOne) {
    const FileIdentity read = identityOf(path_);
    folder_.remove("shared/a.webloc");
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_FALSE(isWhatWasRead(path_, read)) << "and opening a pipe must not wait";
    folder_.remove("shared/a.webloc");
    folder_.createDirectories("shared/a.webloc");
    EXPECT_FALSE(isWhatWasRead(path_, read));
}

TEST_F(HeldFileTest, AFileWhosePlaceIsUnknownIsNeverTheOne) {
    FileIdentity read = identityOf(path_);
    read.place.clear();
    EXPECT_FALSE(isWhatWasRead(path_, read));
    EXPECT_FALSE(isWhatWasRead(path_, FileIdentity()));
}

TEST_F(HeldFileTest, ThePlaceHasNoLinksInIt) {
    folder_.createLink("shared", "linked");
    EXPECT_EQ(HeldFile::at(folder_ / "linked/./a.webloc")->place(), path_);
    EXPECT_FALSE(HeldFile::at(folder_ / "missing"));
}

TEST_F(HeldFileTest, AFileThatIsGoneOrMovedHasNoPlaceOrTheNewOne) {
    const auto file = HeldFile::at(path_);
    folder_.move("shared/a.webloc", "home/moved.webloc");
    EXPECT_EQ(file->place(), folder_ / "home/moved.webloc");
    folder_.remove("home/moved.webloc");
    EXPECT_EQ(file->place(), "");
    // The kernel's mark of a deleted file, as the name of another file.
    folder_.write("home/moved.webloc (deleted)");
    EXPECT_EQ(file->place(), "");
}

TEST_F(HeldFileTest, OperationsActOnTheFileThatWasOpened) {
    const auto file = HeldFile::at(path_);
    folder_.move("shared/a.webloc", "home/moved.webloc");
    folder_.createLink(document_, "shared/a.webloc");
    const struct timespec times[2] = {{1000, 0}, {2000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, file->procPath().c_str(), times, 0), 0);
    EXPECT_EQ(HeldFile::at(folder_ / "home/moved.webloc")->status().st_mtim.tv_sec, 2000);
    EXPECT_NE(HeldFile::at(document_)->status().st_mtim.tv_sec, 2000);
}

TEST_F(HeldFileTest, AFileThatItsOwnerMayNotReadCanBeChangedAllTheSame) {
    ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(path_.c_str(), 0200), 0);
    const bool hasAttributes = setxattr(path_.c_str(), "user.probe", "x", 1, 0) == 0;
    if (geteuid() == 0) {
        ASSERT_EQ(chown(path_.c_str(), nobody, nobody), 0);
    }
    const Unprivileged unprivileged;
    ASSERT_LT(open(path_.c_str(), O_RDONLY | O_CLOEXEC), 0);
    const auto file = HeldFile::at(path_);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->place(), path_);
    const struct timespec times[2] = {{1000, 0}, {2000, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, file->procPath().c_str(), times, 0), 0);
    EXPECT_EQ(setxattr(file->procPath().c_str(), "user.glintmark.icon", "x", 1, 0) == 0,
              hasAttributes);
}

}  // namespace
}  // namespace glintmark::platform
