#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "linux/watching/InotifyEventStream.h"
#include "tests/linux/watching/EventStreamFixture.h"
#include "tests/support/Mounting.h"

// Other file systems at, above and below watched folders.

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

/// Mounts below the test's directory while it lives.
class Mount {
public:
    Mount(std::string source, std::string target, const char* type, unsigned long flags)
        : target_(std::move(target)),
          isThere_(::mount(source.c_str(), target_.c_str(), type, flags, nullptr) == 0) {
        EXPECT_TRUE(isThere_) << std::strerror(errno);
    }
    ~Mount() { unmount(); }

    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;

    void unmount() {
        if (std::exchange(isThere_, false)) {
            EXPECT_EQ(::umount2(target_.c_str(), MNT_DETACH), 0);
        }
    }

private:
    std::string target_;
    bool isThere_;
};

class InotifyEventStreamMountTest : public EventStreamFixture {
protected:
    void SetUp() override {
        if (!test::mayMount()) {
            GTEST_SKIP() << "mounting takes root";
        }
    }
};

TEST_F(InotifyEventStreamMountTest, ADirectoryMountedInASecondPlaceIsReportedInBoth) {
    directory_.createDirectories("links/mount");
    directory_.createDirectories("real/a");
    const Mount mount(directory_.path("real"), directory_.path("links/mount"), nullptr, MS_BIND);
    watchSettled({"links", "real"});
    directory_.write("links/mount/a/x.webloc");
    EXPECT_TRUE(isReported("links/mount/a"));
    EXPECT_TRUE(isReported("real/a"));
}

TEST_F(InotifyEventStreamMountTest, ADirectoryMountedBelowItselfEndsTheWalk) {
    directory_.createDirectories("links/a/mount");
    const Mount mount(directory_.path("links"), directory_.path("links/a/mount"), nullptr, MS_BIND);
    watchSettled({"links"});
    directory_.write("links/a/x");
    EXPECT_TRUE(isReported("links/a"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/a")));
}

TEST_F(InotifyEventStreamMountTest, AFileSystemMountedBelowAFolderIsWatched) {
    directory_.createDirectories("links/mount/hidden");
    directory_.createDirectories("real/a");
    watchSettled({"links"});
    Mount mount(directory_.path("real"), directory_.path("links/mount"), nullptr, MS_BIND);
    EXPECT_TRUE(isReported("links/mount/a"));
    settle("links");
    directory_.write("links/mount/a/x");
    EXPECT_TRUE(isReported("links/mount/a"));
    mount.unmount();
    EXPECT_TRUE(waitFor([this] {  // no event shows that the stream is ready
        directory_.write("links/mount/hidden/x");
        directory_.remove("links/mount/hidden/x");
        return reports_.has(directory_.path("links/mount/hidden"));
    }));
}

TEST_F(InotifyEventStreamMountTest, AnUnmountedFileSystemUncoversWhatItHid) {
    directory_.createDirectories("links/mount");
    Mount mount("none", directory_.path("links/mount"), "tmpfs", 0);
    directory_.createDirectories("links/mount/a");
    watchSettled({"links"});
    directory_.write("links/mount/a/x.webloc");
    EXPECT_TRUE(isReported("links/mount/a"));
    mount.unmount();
    EXPECT_TRUE(isReported("links/mount"));
    settle("links");
    directory_.write("links/mount/x");
    EXPECT_TRUE(isReported("links/mount"));
}

TEST_F(InotifyEventStreamMountTest, AFolderOnAnotherFileSystemIsWatched) {
    directory_.createDirectories("disk");
    const Mount mount("none", directory_.path("disk"), "tmpfs", 0);
    directory_.createDirectories("disk/links/a");
    directory_.createLink(directory_.path("disk/links"), "shortcut");
    watchSettled({"disk/links", "shortcut"});
    directory_.createDirectories("disk/links/a/b");
    EXPECT_TRUE(isReported("disk/links/a/b"));
    EXPECT_TRUE(isReported("shortcut/a/b"));
    directory_.move("disk/links/a", "disk/links/c");
    EXPECT_TRUE(isReported("disk/links/c/b"));
}

TEST_F(InotifyEventStreamMountTest, AFolderOnAFileSystemThatIsMountedLaterIsWatched) {
    directory_.createDirectories("disk");
    directory_.createDirectories("prepared/links/a");
    watch({"disk/links"});
    for (int i = 0; i < 2; ++i) {
        Mount mount(directory_.path("prepared"), directory_.path("disk"), nullptr, MS_BIND);
        EXPECT_TRUE(isReported("disk/links/a"));
        settle("disk/links");
        directory_.write("disk/links/a/" + std::to_string(i));
        EXPECT_TRUE(isReported("disk/links/a"));
        reports_.forget();
        // The directory's only watch was by this path. It ends with the mount.
        mount.unmount();
        directory_.write("prepared/links/a/unseen-" + std::to_string(i));
    }
}

TEST_F(InotifyEventStreamMountTest, AFileSystemMountedOverAFolderTakesItsPlaceAndGivesItBack) {
    directory_.createDirectories("links/below");
    directory_.createDirectories("prepared/above");
    watchSettled({"links"});
    Mount mount(directory_.path("prepared"), directory_.path("links"), nullptr, MS_BIND);
    EXPECT_TRUE(isReported("links"));
    EXPECT_TRUE(isReported("links/above"));
    settle("links");
    directory_.write("links/above/x");
    EXPECT_TRUE(isReported("links/above"));
    reports_.forget();
    mount.unmount();
    EXPECT_TRUE(isReported("links"));
    settle("links");
    directory_.write("links/below/x");
    EXPECT_TRUE(isReported("links/below"));
    EXPECT_THAT(reports_.paths(), ElementsAre(directory_.path("links/below")));
}

}  // namespace
}  // namespace glintmark::platform
