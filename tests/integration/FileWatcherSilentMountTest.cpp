#include "tests/integration/FileWatcherInotifyFixture.h"
#include "tests/support/SilentMount.h"

// The watcher beside a real mount whose calls hang in the kernel.

namespace glintmark {
namespace {

using platform::threadsNamed;
using platform::waitUntil;
using test::SilentMount;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr const char* linkThread = "link-targets";
constexpr const char* listingThread = "folder-listing";
constexpr std::chrono::seconds inventoryAtMost{10};  // 2 s, and time for a busy machine

class FileWatcherSilentMountTest : public FileWatcherInotifyTest {
protected:
    void SetUp() override {
        home().createDirectories("mount");
        mount_ = SilentMount::make(home().path("mount"));
        if (mount_ == nullptr) {
            GTEST_SKIP() << "needs the right to mount, and /dev/fuse";
        }
    }

    /// Before the fixture waits for the threads that hang.
    void TearDown() override { mount_.reset(); }

    SilentMount& mount() { return *mount_; }
    std::string mountPath() { return home().path("mount"); }

    /// The next poll to begin has ended.
    static bool pollsGoOn(const CountingWatcher& watcher) {
        const int polls = watcher.polls;
        return waitUntil([&] { return watcher.polls > polls + 1; });
    }

private:
    std::unique_ptr<SilentMount> mount_;
};

TEST_F(FileWatcherSilentMountTest, ALinkIntoItHoldsUpNothing) {
    auto watcher = startedWatcher();
    mount().stopAnswering(SilentMount::Call::lookup);
    home().createLink(mountPath() + "/target", "Desktop/dead.webloc");
    ASSERT_TRUE(waitUntil([&] { return mount().hanging() > 0; }));

    home().write("Desktop/a.webloc");
    home().createDirectories("Downloads/sub");
    home().write("Downloads/sub/b.webloc");
    ASSERT_TRUE(deliveredAtLeast(2));
    ASSERT_TRUE(pollsGoOn(*watcher));
    EXPECT_EQ(mount().hanging(), 1U);  // no poll has followed the link again
    EXPECT_THAT(delivered(), UnorderedElementsAre(home().path("Desktop/a.webloc"),
                                                  home().path("Downloads/sub/b.webloc")));

    mount().addFile("target");
    mount().answer();
    ASSERT_TRUE(deliveredAtLeast(3));
    EXPECT_EQ(delivered().back(), home().path("Desktop/dead.webloc"));
}

TEST_F(FileWatcherSilentMountTest, ManyLinksIntoItHoldUpNothing) {
    auto watcher = startedWatcher();
    mount().stopAnswering(SilentMount::Call::lookup);
    for (int i = 0; i < 40; ++i) {
        const auto number = std::to_string(i);
        home().createLink(mountPath() + "/" + number, "Desktop/" + number + ".webloc");
    }
    ASSERT_TRUE(waitUntil([] { return threadsNamed(linkThread) > 4; }));
    home().write("Desktop/a.webloc");
    ASSERT_TRUE(deliveredAtLeast(1));
    EXPECT_THAT(delivered(), ElementsAre(home().path("Desktop/a.webloc")));
    EXPECT_LE(threadsNamed(linkThread), 17U);
}

TEST_F(FileWatcherSilentMountTest, AWatchedFolderThatDoesNotAnswerIsTakenUpLater) {
    mount().addFile("old.webloc");
    mount().stopAnswering(SilentMount::Call::attributes);
    mount().stopAnswering(SilentMount::Call::openDirectory);
    home().write("Desktop/old.webloc");
    const auto begin = std::chrono::steady_clock::now();
    auto watcher = startedWatcher({mountPath(), mountPath() + "/below"});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, inventoryAtMost);
    EXPECT_THAT(log().lines(), Contains("Glintmark: 既存weblocファイル 1 件を記録"));

    home().write("Desktop/a.webloc");
    ASSERT_TRUE(deliveredAtLeast(1));
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(pollsGoOn(*watcher));
    }
    EXPECT_TRUE(waitUntil([] { return threadsNamed(listingThread) <= 2; }));  // one for each folder

    mount().answer();
    ASSERT_TRUE(waitUntil([] { return threadsNamed(listingThread) == 0; }));
    ASSERT_TRUE(pollsGoOn(*watcher));
    mount().addFile("new.webloc");
    ASSERT_TRUE(deliveredAtLeast(2));
    EXPECT_THAT(delivered(),
                ElementsAre(home().path("Desktop/a.webloc"), mountPath() + "/new.webloc"));
}

TEST_F(FileWatcherSilentMountTest, EachNewWatcherWaitsForTheSameListing) {
    mount().stopAnswering(SilentMount::Call::openDirectory);
    for (int i = 0; i < 2; ++i) {
        auto watcher = startedWatcher({mountPath()});
        watcher->stop();
        platform::runPending();
    }
    EXPECT_TRUE(waitUntil([] { return threadsNamed(listingThread) == 1; }));
    EXPECT_LE(mount().hanging(), 3U);  // those of the two streams, and one listing
}

TEST_F(FileWatcherSilentMountTest, AFolderThatStopsToAnswerHoldsUpNothing) {
    mount().addFile("old.webloc");
    auto watcher = startedWatcher({mountPath()});
    ASSERT_TRUE(pollsGoOn(*watcher));
    mount().stopAnswering(SilentMount::Call::openDirectory);
    ASSERT_TRUE(waitUntil([&] { return mount().hanging() > 0; }));
    home().write("Desktop/a.webloc");
    ASSERT_TRUE(deliveredAtLeast(1));
    home().createDirectories("Downloads/sub");
    home().write("Downloads/sub/b.webloc");
    ASSERT_TRUE(deliveredAtLeast(2));
    EXPECT_LE(threadsNamed(queueThread), 3U);

    mount().addFile("new.webloc");
    mount().answer();
    ASSERT_TRUE(deliveredAtLeast(3));
    EXPECT_THAT(delivered(), UnorderedElementsAre(home().path("Desktop/a.webloc"),
                                                  home().path("Downloads/sub/b.webloc"),
                                                  mountPath() + "/new.webloc"));
}

}  // namespace
}  // namespace glintmark
