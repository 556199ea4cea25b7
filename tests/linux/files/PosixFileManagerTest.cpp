#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "linux/files/PosixFileManager.h"
#include "linux/queues/LinuxDispatchQueues.h"
#include "tests/linux/Unprivileged.h"
#include "tests/linux/Waiting.h"
#include "tests/platform/FileManagerContract.h"
#include "tests/support/Event.h"
#include "tests/support/SilentMount.h"
#include "tests/support/Subject.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

class PosixSubject : public FileManagerSubject {
public:
    FileManager& manager() override { return manager_; }
    std::string folder() override { return directory_.path(); }
    void createFile(const std::string& path, const std::string& bytes) override {
        directory_.write(relative(path), bytes);
    }
    void createDirectory(const std::string& path) override {
        directory_.createDirectories(relative(path));
    }
    void createLink(const std::string& path, const std::string& target) override {
        directory_.createLink(target, relative(path));
    }
    void remove(const std::string& path) override { directory_.remove(relative(path)); }

private:
    std::string relative(const std::string& path) {
        return path.substr(directory_.path().size() + 1);
    }

    test::TemporaryDirectory directory_;
    PosixFileManager manager_;
};

INSTANTIATE_TEST_SUITE_P(Posix, FileManagerContract,
                         testing::Values(&test::makeSubject<FileManagerSubject, PosixSubject>));

/// Sets HOME while it lives; null removes it.
class HomeScope {
public:
    explicit HomeScope(const char* value) {
        const char* before = std::getenv("HOME");
        before_ = before != nullptr ? std::optional<std::string>(before) : std::nullopt;
        set(value);
    }
    ~HomeScope() { set(before_ ? before_->c_str() : nullptr); }

private:
    static void set(const char* value) {
        if (value != nullptr) {
            ::setenv("HOME", value, 1);
        } else {
            ::unsetenv("HOME");
        }
    }

    std::optional<std::string> before_;
};

class PosixFileManagerTest : public testing::Test {
protected:
    test::TemporaryDirectory directory_;
    PosixFileManager manager_;
};

TEST_F(PosixFileManagerTest, TheHomeDirectoryComesFromTheEnvironment) {
    const HomeScope home("/home/kim//");
    EXPECT_EQ(manager_.homeDirectoryForCurrentUser(), "/home/kim");
}

TEST_F(PosixFileManagerTest, TheRootCanBeAHomeDirectory) {
    const HomeScope home("/");
    EXPECT_EQ(manager_.homeDirectoryForCurrentUser(), "/");
}

TEST_F(PosixFileManagerTest, WithoutAnAbsoluteHomeThePasswordDatabaseIsAsked) {
    const passwd* entry = ::getpwuid(::getuid());
    ASSERT_NE(entry, nullptr);
    for (const char* value : {static_cast<const char*>(nullptr), "", "relative/home"}) {
        const HomeScope home(value);
        EXPECT_EQ(manager_.homeDirectoryForCurrentUser(), entry->pw_dir);
    }
}

TEST_F(PosixFileManagerTest, ALinkExistsWhenItsTargetDoes) {
    directory_.write("target");
    directory_.createLink("target", "good");
    directory_.createLink("missing", "bad");
    EXPECT_TRUE(manager_.fileExists(directory_.path("good")));
    EXPECT_FALSE(manager_.fileExists(directory_.path("bad")));
}

TEST_F(PosixFileManagerTest, NamesAreBytes) {
    const std::string name = "\xFF\n%s\"\\\xC3";
    directory_.write(name, "x");
    std::vector<std::string> names;
    EXPECT_TRUE(manager_.contentsOfDirectory(
        directory_.path(), [&](std::string_view found) { names.emplace_back(found); }));
    EXPECT_THAT(names, testing::ElementsAre(name));
    EXPECT_TRUE(manager_.fileExists(directory_.path(name)));
    EXPECT_EQ(manager_.contents(directory_.path(name)), "x");
}

TEST_F(PosixFileManagerTest, ManyNamesAreAllListedOnce) {
    constexpr std::size_t count = 3000;  // more than one system call returns
    for (std::size_t i = 0; i < count; ++i) {
        directory_.write("a-rather-long-name-" + std::to_string(i));
    }
    std::vector<std::string> names;
    EXPECT_TRUE(manager_.contentsOfDirectory(
        directory_.path(), [&](std::string_view found) { names.emplace_back(found); }));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names.size(), count);
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}

TEST_F(PosixFileManagerTest, WithoutPermissionNothingIsListedOrRead) {
    directory_.createDirectories("folder");
    directory_.write("file", "x");
    ASSERT_EQ(::chmod(directory_.path("folder").c_str(), 0), 0);
    ASSERT_EQ(::chmod(directory_.path("file").c_str(), 0), 0);
    const Unprivileged unprivileged;
    EXPECT_FALSE(manager_.contentsOfDirectory(directory_.path("folder"), [](auto) {}));
    EXPECT_EQ(manager_.contents(directory_.path("file")), std::nullopt);
}

TEST_F(PosixFileManagerTest, APipeHasNoContentsAndOpeningItDoesNotWait) {
    ASSERT_EQ(::mkfifo(directory_.path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(manager_.contents(directory_.path("pipe")), std::nullopt);
}

TEST_F(PosixFileManagerTest, AFileReadThroughALinkIsTheOneItLeadsTo) {
    directory_.write("real/target", "x");
    directory_.createLink("real/target", "link");
    directory_.createLink("real", "folder");
    FileIdentity direct;
    FileIdentity linked;
    FileIdentity inLinkedFolder;
    EXPECT_EQ(manager_.contents(directory_.path("real/target"), &direct), "x");
    EXPECT_EQ(manager_.contents(directory_.path("link"), &linked), "x");
    EXPECT_EQ(manager_.contents(directory_.path("folder/target"), &inLinkedFolder), "x");
    EXPECT_EQ(direct.place, directory_.path("real/target"));
    EXPECT_EQ(inLinkedFolder, direct);
    EXPECT_TRUE(linked.isThroughLink);
    linked.isThroughLink = false;
    EXPECT_EQ(linked, direct);
}

TEST_F(PosixFileManagerTest, AFileWithoutASizeIsReadWhole) {
    const auto contents = manager_.contents("/proc/self/status");
    ASSERT_TRUE(contents.has_value());
    EXPECT_THAT(*contents, testing::StartsWith("Name:"));
    EXPECT_GT(contents->size(), 100U);
}

TEST_F(PosixFileManagerTest, ALargeFileIsReadWhole) {
    const std::string bytes(300'000, 'x');
    directory_.write("large", bytes);
    EXPECT_EQ(manager_.contents(directory_.path("large")), bytes);
}

TEST_F(PosixFileManagerTest, AFileThatIsLargerThanItSaysIsNotReadToItsEnd) {
    // It has megabytes, and says that it is empty. Others in /proc are endless.
    const auto contents = manager_.contents("/proc/kallsyms");
    ASSERT_TRUE(contents.has_value());
    EXPECT_EQ(contents->size(), 64U * 1024);
}

TEST_F(PosixFileManagerTest, AFileLargerThanTheMemoryHasNoContents) {
    directory_.write("sparse", "x");
    ASSERT_EQ(::truncate(directory_.path("sparse").c_str(), off_t{1} << 42U), 0);
    EXPECT_EQ(manager_.contents(directory_.path("sparse")), std::nullopt);
    EXPECT_EQ(manager_.fileSize(directory_.path("sparse")), std::size_t{1} << 42U);
}

TEST_F(PosixFileManagerTest, AMountPointIsThereThoughItsFileSystemDoesNotAnswer) {
    directory_.createDirectories("mount.webloc");
    const auto mount = test::SilentMount::make(directory_.path("mount.webloc"));
    if (mount == nullptr) {
        GTEST_SKIP() << "needs the right to mount, and /dev/fuse";
    }
    mount->stopAnswering(test::SilentMount::Call::attributes);
    EXPECT_EQ(manager_.entry(directory_.path("mount.webloc")), Entry::other);
}

TEST_F(PosixFileManagerTest, OtherFilesAreReadWhileReadingManyHangs) {
    constexpr std::size_t dead = 20;  // more than the global queue has threads
    directory_.createDirectories("mount");
    const auto mount = test::SilentMount::make(directory_.path("mount"));
    if (mount == nullptr) {
        GTEST_SKIP() << "needs the right to mount, and /dev/fuse";
    }
    for (const auto call : {test::SilentMount::Call::openFile, test::SilentMount::Call::read}) {
        mount->stopAnswering(call);
        std::atomic<std::size_t> done = 0;
        LinuxDispatchQueues queues;
        auto& global = queues.global(QualityOfService::userInitiated);
        for (std::size_t i = 0; i < dead; ++i) {
            const auto name = std::to_string(static_cast<int>(call)) + "-" + std::to_string(i);
            mount->addFile(name, "x");
            global.async([&, path = directory_.path("mount/" + name)] {
                EXPECT_EQ(manager_.contents(path), "x");
                ++done;
            });
        }
        test::Event isRead;
        directory_.write("file", "x");
        global.async([&] {
            EXPECT_EQ(manager_.contents(directory_.path("file")), "x");
            isRead.set();
        });
        EXPECT_TRUE(isRead.wait());
        EXPECT_EQ(mount->hanging(), dead);
        EXPECT_EQ(done, 0U);
        mount->answer();
        EXPECT_TRUE(waitFor([&] { return done == dead; }));
    }
}

}  // namespace
}  // namespace glintmark::platform
