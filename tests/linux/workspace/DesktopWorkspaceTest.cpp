#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <mutex>

#include "linux/files/FileURI.h"
#include "linux/files/PosixFileManager.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "linux/workspace/DesktopWorkspace.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PNGReading.h"
#include "tests/linux/PrivateBus.h"
#include "tests/support/Mounting.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WholeFile.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

constexpr time_t modified = 1'700'000'000;
constexpr auto sizes = {"normal", "large", "x-large", "xx-large"};

Image redIcon() { return Image(square(512, 255, 0, 0)); }

struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status;
}

class DesktopWorkspaceTest : public testing::Test {
protected:
    DesktopWorkspaceTest() : daemon_(PrivateBus::Begin::stopped) { makeWorkspace(true); }

    void makeWorkspace(bool metadataAnswer) {
        makeWorkspace([this, metadataAnswer](const std::string& path, const std::string& iconURI) {
            metadata_.push_back(path + " " + iconURI);
            seenTime_ = statusOf(path).st_mtim;
            ++answers_;
            return metadataAnswer;
        });
    }

    void makeWorkspace(IconMetadata::Writer writer) {
        const WorkspaceFolders folders{folder_ / "home", folder_ / "data", folder_ / "cache"};
        workspace_ = std::make_unique<DesktopWorkspace>(bus_, helpers_, folders, std::move(writer));
    }

    std::string makeLink(const std::string& name) const {
        const std::string path = folder_.write("home/" + name, "link");
        const struct timespec times[2] = {{modified, 5}, {modified, 250'000'000}};
        utimensat(AT_FDCWD, path.c_str(), times, 0);
        return path;
    }

    bool setIcon(const Image& image, const std::string& path) {
        return workspace_->setIcon(workspace_->prepareIcon(image), path, std::nullopt);
    }

    /// Also waits for the last step, which follows the answer about the metadata.
    void setRedIcon(const std::string& path) {
        ASSERT_TRUE(setIcon(redIcon(), path));
        ASSERT_TRUE(waitUntil([&] { return statusOf(path).st_mtim.tv_nsec == 0; }));
    }

    std::string thumbnailPath(const std::string& size, const std::string& uri) const {
        const GStringHandle name(g_compute_checksum_for_string(G_CHECKSUM_MD5, uri.c_str(), -1));
        return folder_ / "cache/thumbnails/" + size + "/" + name.get() + ".png";
    }

    ReadPNG thumbnail(const std::string& size, const std::string& uri) const {
        return readPNG(test::wholeFile(thumbnailPath(size, uri)));
    }

    std::vector<std::string> storedIcons() const {
        std::vector<std::string> paths;
        for (const auto& entry :
             std::filesystem::directory_iterator(folder_ / "data/glintmark/icons")) {
            paths.push_back(entry.path());
        }
        return paths;
    }

    test::TemporaryDirectory folder_;
    PrivateBus daemon_;
    SessionBus bus_;
    ThreadPoolQueue helpers_{"helpers", 2};
    std::vector<std::string> metadata_;
    struct timespec seenTime_ {};
    std::atomic<int> answers_ = 0;
    std::unique_ptr<DesktopWorkspace> workspace_;
};

TEST_F(DesktopWorkspaceTest, TheIconReachesStoreAttributesAndThumbnails) {
    const std::string path = makeLink("a.webloc");
    const std::string uri = "file://" + path;
    setRedIcon(path);

    ASSERT_EQ(storedIcons().size(), 1U);
    const ReadPNG stored = readPNG(test::wholeFile(storedIcons()[0]));
    EXPECT_EQ(stored.width, 512);
    EXPECT_THAT(stored.pixels, testing::ElementsAreArray(redIcon().bitmap()->pixels()));
    EXPECT_THAT(metadata_, ElementsAre(path + " file://" + storedIcons()[0]));
    for (const char* size : sizes) {
        const ReadPNG read = thumbnail(size, uri);
        ASSERT_GT(read.width, 0) << size;
        EXPECT_EQ(read.texts.at("Thumb::MTime"), std::to_string(modified));
        EXPECT_EQ(read.texts.at("Thumb::URI"), uri);
        EXPECT_EQ(read.texts.at("Thumb::Size"), "4");
        EXPECT_EQ(read.texts.at("Thumb::Mimetype"), "application/x-webloc");
    }
    if (const auto name = readIconName(path)) {
        EXPECT_EQ(IconStore(folder_ / "data").pathOf(*name), storedIcons()[0]);
    }
}

TEST_F(DesktopWorkspaceTest, AnIconIsEncodedAndStoredWhenItIsPrepared) {
    ASSERT_NE(workspace_->prepareIcon(redIcon()), nullptr);
    ASSERT_EQ(storedIcons().size(), 1U);
    const ReadPNG stored = readPNG(test::wholeFile(storedIcons()[0]));
    EXPECT_THAT(stored.pixels, testing::ElementsAreArray(redIcon().bitmap()->pixels()));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "cache")) << "thumbnails need a file";
}

TEST_F(DesktopWorkspaceTest, AnIconPreparedOnceCanBeSetOnManyFiles) {
    const auto icon = workspace_->prepareIcon(redIcon());
    for (const char* name : {"a.webloc", "b.webloc"}) {
        const std::string path = makeLink(name);
        ASSERT_TRUE(workspace_->setIcon(icon, path, std::nullopt));
        EXPECT_EQ(thumbnail("large", "file://" + path).pixels[0], 255);
    }
    EXPECT_EQ(storedIcons().size(), 1U);
}

TEST_F(DesktopWorkspaceTest, NothingStaysOfAnIconThatIsPreparedAndDropped) {
    const auto owner = std::make_shared<int>(0);
    const std::vector<std::uint8_t> pixels(std::size_t{512} * 512 * 4);
    auto icon = workspace_->prepareIcon(Image(BitmapImageRep(512, 512, true, owner, pixels)));
    EXPECT_EQ(owner.use_count(), 1) << "the pixels are encoded by now";
    const std::weak_ptr watched = icon;
    icon.reset();
    EXPECT_TRUE(watched.expired());
}

TEST_F(DesktopWorkspaceTest, NothingStaysOfAnIconWhoseFileIsGone) {
    auto icon = workspace_->prepareIcon(redIcon());
    const std::weak_ptr watched = icon;
    EXPECT_FALSE(workspace_->setIcon(std::move(icon), folder_ / "home/gone.webloc", std::nullopt));
    EXPECT_TRUE(watched.expired());
}

TEST_F(DesktopWorkspaceTest, TheTimeLosesItsFractionInTheLastStep) {
    const std::string path = makeLink("a.webloc");
    setRedIcon(path);
    EXPECT_EQ(seenTime_.tv_nsec, 250'000'000);
    const struct stat after = statusOf(path);
    EXPECT_EQ(after.st_mtim.tv_sec, modified);
    EXPECT_EQ(after.st_atim.tv_sec, modified);
    EXPECT_EQ(after.st_atim.tv_nsec, 5);
}

TEST_F(DesktopWorkspaceTest, AMissingFileIsRefusedAndNothingWrittenForIt) {
    EXPECT_FALSE(setIcon(redIcon(), folder_ / "home/missing.webloc"));
    std::filesystem::create_directories(folder_ / "home");
    std::filesystem::create_symlink("nowhere", folder_ / "home/dangling.webloc");
    EXPECT_FALSE(setIcon(redIcon(), folder_ / "home/dangling.webloc"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "data/glintmark/applied"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "cache"));
    EXPECT_TRUE(metadata_.empty());
}

TEST_F(DesktopWorkspaceTest, AnImageWithoutPixelsIsRefused) {
    const std::string path = makeLink("a.webloc");
    EXPECT_EQ(workspace_->prepareIcon(Image(Size{512, 512})), nullptr);
    EXPECT_FALSE(setIcon(Image(Size{512, 512}), path));
}

TEST_F(DesktopWorkspaceTest, TheSameIconIsStoredOnceForManyFiles) {
    for (const char* name : {"a.webloc", "b.webloc", "c.webloc"}) {
        EXPECT_TRUE(setIcon(redIcon(), makeLink(name)));
    }
    EXPECT_EQ(storedIcons().size(), 1U);
}

TEST_F(DesktopWorkspaceTest, AFileCanGetAnotherIcon) {
    const std::string path = makeLink("a.webloc");
    setRedIcon(path);
    ASSERT_TRUE(setIcon(Image(square(512, 0, 0, 255)), path));
    EXPECT_EQ(thumbnail("large", "file://" + path).pixels[2], 255);
    EXPECT_TRUE(waitUntil([this] { return answers_ == 2; }));
}

TEST_F(DesktopWorkspaceTest, NamesOfAnyBytesWork) {
    const std::string path = makeLink("\xFF\xFE %\n'\"[;].webloc");
    setRedIcon(path);
    EXPECT_GT(thumbnail("normal", glibFileURI(path)).width, 0);
    EXPECT_GT(thumbnail("normal", qtFileURI(path)).width, 0);
    EXPECT_THAT(metadata_, ElementsAre(StartsWith(path + " file://")));
}

TEST_F(DesktopWorkspaceTest, AFolderCanHaveAnIconToo) {
    const std::string path = folder_ / "home/folder.webloc";
    std::filesystem::create_directories(path);
    ASSERT_TRUE(setIcon(redIcon(), path));
    EXPECT_EQ(thumbnail("normal", "file://" + path).texts.at("Thumb::Mimetype"), "inode/directory");
}

TEST_F(DesktopWorkspaceTest, AFileReachedThroughALinkHasThumbnailsForBothPaths) {
    const std::string path = makeLink("real.webloc");
    std::filesystem::create_symlink(path, folder_ / "home/link.webloc");
    ASSERT_TRUE(setIcon(redIcon(), folder_ / "home/link.webloc"));
    ASSERT_TRUE(waitUntil([this] { return answers_ == 1; }));
    EXPECT_THAT(metadata_, ElementsAre(StartsWith(path + " file://")));
    for (const char* name : {"real.webloc", "link.webloc"}) {
        const std::string uri = "file://" + (folder_ / "home/") + name;
        EXPECT_EQ(thumbnail("large", uri).texts["Thumb::URI"], uri);
    }
}

/// Two files: the link file that was read, and a document elsewhere that must stay as it is.
class SwappedFileTest : public DesktopWorkspaceTest {
protected:
    SwappedFileTest() {
        EXPECT_TRUE(PosixFileManager().contents(path_, &read_));
        before_ = statusOf(document_);
    }

    bool setIconOnWhatWasRead() {
        return workspace_->setIcon(workspace_->prepareIcon(redIcon()), path_, read_);
    }

    void linkToTheDocument() const {
        folder_.remove("home/a.webloc");
        folder_.createLink(document_, "home/a.webloc");
    }

    void expectTheDocumentUntouched() const {
        const struct stat after = statusOf(document_);
        EXPECT_EQ(after.st_mtim.tv_nsec, before_.st_mtim.tv_nsec);
        EXPECT_EQ(after.st_ctim.tv_nsec, before_.st_ctim.tv_nsec) << "not even its attributes";
        EXPECT_EQ(readIconName(document_), std::nullopt);
        for (const char* size : sizes) {
            EXPECT_FALSE(std::filesystem::exists(thumbnailPath(size, "file://" + document_)));
        }
    }

    const std::string path_ = makeLink("a.webloc");
    const std::string document_ = makeLink("documents/report.pdf");
    FileIdentity read_;
    struct stat before_ {};
};

TEST_F(SwappedFileTest, TheFileThatWasReadGetsTheIcon) {
    ASSERT_TRUE(setIconOnWhatWasRead());
    EXPECT_GT(thumbnail("large", "file://" + path_).width, 0);
}

TEST_F(SwappedFileTest, ALinkPutInPlaceOfTheFileIsNotFollowed) {
    linkToTheDocument();
    EXPECT_FALSE(setIconOnWhatWasRead());
    expectTheDocumentUntouched();
    EXPECT_TRUE(metadata_.empty());
    EXPECT_FALSE(std::filesystem::exists(folder_ / "cache"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "data/glintmark/applied"));
}

TEST_F(SwappedFileTest, ALinkPutInPlaceDuringTheCallIsNotFollowed) {
    makeWorkspace([this](const std::string& place, const std::string&) {
        EXPECT_EQ(place, path_);
        linkToTheDocument();
        ++answers_;
        return true;
    });
    ASSERT_TRUE(setIconOnWhatWasRead());
    ASSERT_TRUE(waitUntil([this] { return answers_ == 1; }));
    runPending();
    expectTheDocumentUntouched();
}

TEST_F(SwappedFileTest, ASaveThatRenamesKeepsTheIcon) {
    makeLink("a.webloc.new");
    folder_.move("home/a.webloc.new", "home/a.webloc");
    EXPECT_TRUE(setIconOnWhatWasRead());
    EXPECT_GT(thumbnail("large", "file://" + path_).width, 0);
}

TEST_F(DesktopWorkspaceTest, AFileThatItsOwnerMayOnlyWriteGetsItsIcon) {
    const std::string path = makeLink("a.webloc");
    chmod(path.c_str(), 0200);
    setRedIcon(path);
}

TEST_F(DesktopWorkspaceTest, AReadOnlyFileGetsItsIcon) {
    const std::string path = makeLink("a.webloc");
    chmod(path.c_str(), 0444);
    setRedIcon(path);
}

TEST_F(DesktopWorkspaceTest, AnIconThatCannotBeStoredIsSetByItsThumbnailsAlone) {
    folder_.write("data", "a file where the folder should be");
    const std::string path = makeLink("a.webloc");
    EXPECT_TRUE(setIcon(redIcon(), path));
    EXPECT_TRUE(metadata_.empty()) << "no picture, so nothing to point to";
    EXPECT_EQ(readIconName(path), std::nullopt);
    EXPECT_EQ(statusOf(path).st_mtim.tv_nsec, 0);
}

TEST_F(DesktopWorkspaceTest, AFullStoreMakesRoomForTheNextIcon) {
    folder_.createDirectories("home");
    const std::string old = folder_.write("data/glintmark/icons/" + std::string(64, 'a') + ".png");
    std::filesystem::resize_file(old,
                                 IconStore::defaultMaximumBytes);  // takes no disk space
    const struct timespec times[2] = {{modified, 0}, {modified, 0}};
    utimensat(AT_FDCWD, old.c_str(), times, 0);

    const std::string path = makeLink("a.webloc");
    setRedIcon(path);
    EXPECT_FALSE(std::filesystem::exists(old));
    EXPECT_THAT(metadata_, ElementsAre(path + " file://" + storedIcons().at(0)));
}

TEST_F(DesktopWorkspaceTest, OnAnAlmostFullDiskNothingIsWrittenAndTheCallFails) {
    if (!test::mayMount()) {
        GTEST_SKIP() << "mounting takes root";
    }
    test::withMount(folder_.path(), "tmpfs", "size=10000k", [this] {
        const std::string path = makeLink("a.webloc");
        const std::string filler = folder_.write("filler", std::string(9'800'000, 'x'));
        EXPECT_FALSE(setIcon(redIcon(), path));
        EXPECT_FALSE(std::filesystem::exists(folder_ / "data"));
        EXPECT_FALSE(std::filesystem::exists(folder_ / "cache"));
        EXPECT_EQ(readIconName(path), std::nullopt);
        EXPECT_EQ(statusOf(path).st_mtim.tv_nsec, 250'000'000);

        std::filesystem::resize_file(filler, 5'000'000);
        EXPECT_TRUE(workspace_->prepareIcon(redIcon()));
        EXPECT_EQ(storedIcons().size(), 1U);
    });
}

TEST_F(DesktopWorkspaceTest, TheMetadataAloneIsASuccess) {
    folder_.write("cache", "a file where the folder should be");
    EXPECT_TRUE(setIcon(redIcon(), makeLink("a.webloc")));
    makeWorkspace(false);
    EXPECT_FALSE(setIcon(redIcon(), makeLink("b.webloc")));
}

TEST_F(DesktopWorkspaceTest, WhereNothingCanBeWrittenTheCallFails) {
    folder_.write("cache", "a file where the folder should be");
    folder_.write("data", "a file where the folder should be");
    EXPECT_FALSE(setIcon(redIcon(), makeLink("a.webloc")));
}

TEST_F(DesktopWorkspaceTest, ASlowMetadataDaemonDelaysOnlyTheRefresh) {
    struct Gate {
        std::mutex mutex;
        std::condition_variable changed;
        bool open = false;
    };
    const auto gate = std::make_shared<Gate>();
    makeWorkspace([gate](const std::string&, const std::string&) {
        std::unique_lock lock(gate->mutex);
        gate->changed.wait(lock, [&] { return gate->open; });
        return true;
    });
    const std::string path = makeLink("a.webloc");
    ASSERT_TRUE(setIcon(redIcon(), path));
    EXPECT_EQ(statusOf(path).st_mtim.tv_nsec, 250'000'000);
    {
        const std::scoped_lock lock(gate->mutex);
        gate->open = true;
        gate->changed.notify_all();
    }
    EXPECT_TRUE(waitUntil([&] { return statusOf(path).st_mtim.tv_nsec == 0; }));
}

/// A file whose time this process may not set: its own file with the immutable flag
/// (ioctl_iflags(2)) if it may set that, else another user's file.
class FixedFile {
public:
    explicit FixedFile(const std::string& ownPath) : path_("/etc/passwd") {
        const int descriptor = open(ownPath.c_str(), O_RDONLY | O_CLOEXEC);
        int flags = 0;
        ioctl(descriptor, FS_IOC_GETFLAGS, &flags);
        flags |= FS_IMMUTABLE_FL;
        if (ioctl(descriptor, FS_IOC_SETFLAGS, &flags) == 0) {
            descriptor_ = descriptor;
            path_ = ownPath;
        } else {
            close(descriptor);
        }
    }
    ~FixedFile() {
        if (descriptor_ >= 0) {
            int flags = 0;
            ioctl(descriptor_, FS_IOC_GETFLAGS, &flags);
            flags &= ~FS_IMMUTABLE_FL;
            ioctl(descriptor_, FS_IOC_SETFLAGS, &flags);
            close(descriptor_);
        }
    }
    FixedFile(const FixedFile&) = delete;
    FixedFile& operator=(const FixedFile&) = delete;

    const std::string& path() const { return path_; }
    bool isFixed() const { return descriptor_ >= 0 || geteuid() != 0; }

private:
    std::string path_;
    int descriptor_ = -1;
};

TEST_F(DesktopWorkspaceTest, AFileWhoseTimeMayNotBeSetHasThumbnailsForItsRealTime) {
    const FixedFile file(makeLink("a.webloc"));
    if (!file.isFixed()) {
        GTEST_SKIP() << "every file's time may be set here";
    }
    const struct stat before = statusOf(file.path());
    ASSERT_TRUE(setIcon(redIcon(), file.path()));
    EXPECT_EQ(statusOf(file.path()).st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    std::array<char, 64> exact{};
    snprintf(exact.data(), exact.size(), "%lld.%06ld",
             static_cast<long long>(before.st_mtim.tv_sec), before.st_mtim.tv_nsec / 1000);
    const std::string expected = before.st_mtim.tv_nsec == 0 ? std::to_string(before.st_mtim.tv_sec)
                                                             : std::string(exact.data());
    EXPECT_TRUE(waitUntil([&] {
        return thumbnail("large", "file://" + file.path()).texts["Thumb::MTime"] == expected;
    }));
}

TEST_F(DesktopWorkspaceTest, FoldersAreShownByTheFileManagerOnTheBus) {
    daemon_.start();
    ASSERT_TRUE(waitUntil([&] { return bus_.connection() != nullptr; }));
    FakePeer fileManager(daemon_);
    std::string call;
    fileManager.offer(
        "/org/freedesktop/FileManager1",
        R"(<node><interface name="org.freedesktop.FileManager1">
                           <method name="ShowFolders"><arg type="as" direction="in"/>
                             <arg type="s" direction="in"/></method></interface></node>)",
        [&](const std::string&, GVariant* arguments, GDBusMethodInvocation* invocation) {
            const GStringHandle text(g_variant_print(arguments, FALSE));
            call = text.get();
            g_dbus_method_invocation_return_value(invocation, nullptr);
        });
    fileManager.ownName("org.freedesktop.FileManager1");
    EXPECT_TRUE(workspace_->openFileViewer("/home/kim/\xFFLinks"));
    ASSERT_TRUE(waitUntil([&] { return !call.empty(); }));
    EXPECT_EQ(call, "(['file:///home/kim/%FFLinks'], '')");
}

TEST_F(DesktopWorkspaceTest, AnAddressWithoutAProgramIsNotOpened) {
    const std::string path = g_getenv("PATH");
    g_setenv("PATH", folder_.path().c_str(), TRUE);
    const bool opened = workspace_->open(*URL::parse("glintmark-unknown:nothing"));
    g_setenv("PATH", path.c_str(), TRUE);
    EXPECT_FALSE(opened);
}

}  // namespace
}  // namespace glintmark::platform
