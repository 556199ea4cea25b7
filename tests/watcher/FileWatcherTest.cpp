#include "tests/watcher/FileWatcherFixture.h"
#include "watcher/FileWatcher.h"

// Construction, inventory, start and stop. Triggers and scans: FileWatcherScanTest.cpp.

namespace glintmark {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using namespace std::chrono_literals;

TEST_F(FileWatcherTest, TheDefaultFoldersComeFirstAndNoFolderTwice) {
    auto watcher = makeWatcher({desktop, links, "/home/kim", links});
    EXPECT_THAT(
        log().lines(),
        Contains(
            R"(Glintmark: 監視対象ディレクトリ: ["/home/kim/Desktop", "/home/kim/Downloads", "/home/kim/Links"])"));
    watcher->start();
    EXPECT_THAT(stream().folders, ElementsAre(desktop, downloads, links));
}

TEST_F(FileWatcherTest, WithoutFoldersTheTwoDefaultsAreWatched) {
    makeWatcher({})->start();
    EXPECT_THAT(stream().folders, ElementsAre(desktop, downloads));
    EXPECT_THAT(
        log().lines(),
        Contains(
            R"(Glintmark: 監視対象ディレクトリ: ["/home/kim/Desktop", "/home/kim/Downloads"])"));
}

TEST_F(FileWatcherTest, TheDefaultFoldersAreThoseOfTheUser) {
    files().setDesktopAndDownloads("/home/kim/Schreibtisch", "/data/dl");
    makeWatcher({"/data/dl", desktop})->start();
    EXPECT_THAT(stream().folders, ElementsAre("/home/kim/Schreibtisch", "/data/dl", desktop));
}

TEST_F(FileWatcherTest, PathsAreComparedAsTheyAreWritten) {
    makeWatcher({"/home/kim/Desktop/", "/home/kim/desktop", "~/Desktop", "/home/kim/"})->start();
    EXPECT_THAT(stream().folders, ElementsAre(desktop, downloads, "/home/kim/Desktop/",
                                              "/home/kim/desktop", "~/Desktop", "/home/kim/"));
}

TEST_F(FileWatcherTest, QuotesAndBackslashesAreEscapedInTheFolderLine) {
    makeWatcher({R"(/a "b"\c)"});
    EXPECT_THAT(
        log().messages().back(),
        R"(Glintmark: 監視対象ディレクトリ: ["/home/kim/Desktop", "/home/kim/Downloads", "/a \"b\"\\c"])");
}

TEST_F(FileWatcherTest, TheInventoryCountsEveryWeblocEntryAtTheTopLevel) {
    files().create("/home/kim/Desktop/a.webloc");
    files().create("/home/kim/Links/.hidden.webloc");
    files().create("/home/kim/Links/.webloc");
    files().createDirectory("/home/kim/Downloads/folder.webloc");
    files().create("/home/kim/Links/UPPER.WEBLOC");
    files().create("/home/kim/Links/Mixed.Webloc");
    files().create("/home/kim/Links/a.webloc.tmp");
    files().create("/home/kim/Links/sub/below.webloc");
    const auto watcher = makeWatcher();
    EXPECT_EQ(log().lines().front(), "Glintmark: 既存weblocファイル 4 件を記録");
    EXPECT_EQ(log().lines().size(), 2U);
}

TEST_F(FileWatcherTest, TheHomeFolderIsInventoriedThoughNotWatched) {
    files().create("/home/kim/home.webloc");
    auto watcher = startedWatcher();
    EXPECT_THAT(stream().folders, Not(Contains("/home/kim")));

    files().create("/home/kim/new.webloc");
    queues().advance(5s);
    EXPECT_EQ(files().listings("/home/kim"), 0U);
    EXPECT_THAT(delivered(), IsEmpty());

    log().forget();
    makeWatcher();
    EXPECT_EQ(log().lines().front(), "Glintmark: 既存weblocファイル 2 件を記録");
}

TEST_F(FileWatcherTest, TheInventoryListsTheHomeFolderFirstAndEachFolderOnce) {
    const auto watcher = makeWatcher();
    EXPECT_THAT(files().allListings(), ElementsAre("/home/kim", desktop, downloads, links));
}

TEST_F(FileWatcherTest, FilesOfTheInventoryAreNeverReported) {
    files().create("/home/kim/Links/old.webloc");
    auto watcher = startedWatcher();
    streams().report(links);
    queues().advance(20s);
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(FileWatcherTest, FoldersThatCannotBeListedAreWatchedWithoutAnError) {
    files().makeUnreadable(downloads);
    files().create("/home/kim/file");
    auto watcher = makeWatcher({"/missing", "/home/kim/file"});
    watcher->start();
    EXPECT_THAT(stream().folders, ElementsAre(desktop, downloads, "/missing", "/home/kim/file"));
    EXPECT_THAT(
        log().lines(),
        ElementsAre(
            "Glintmark: 既存weblocファイル 0 件を記録",
            R"(Glintmark: 監視対象ディレクトリ: ["/home/kim/Desktop", "/home/kim/Downloads", "/missing", "/home/kim/file"])",
            "Glintmark: ファイル監視開始（バックグラウンドキュー）"));
    queues().advance(5s);
    EXPECT_THAT(delivered(), IsEmpty());

    files().create("/missing/a.webloc");  // the folder appears later
    queues().advance(5s);
    EXPECT_THAT(delivered(), ElementsAre("/missing/a.webloc"));
}

TEST_F(FileWatcherTest, MakingAWatcherDoesNotStartIt) {
    const auto watcher = makeWatcher();
    queues().runPending();
    EXPECT_EQ(streams().streamCount(), 0U);
    EXPECT_EQ(queues().activeTimers(), 0U);
    files().create("/home/kim/Links/a.webloc");
    queues().advance(1min);
    EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatcherTest, StartAttachesTheStreamToTheQueueAndThenStartsIt) {
    const auto watcher = startedWatcher();
    EXPECT_EQ(streams().streamCount(), 1U);
    EXPECT_EQ(stream().latency, 1s);
    EXPECT_THAT(stream().calls, ElementsAre("setDispatchQueue", "start"));
    EXPECT_EQ(queues().liveSerialQueues(), 1U);
}

TEST_F(FileWatcherTest, AStreamThatRefusesToStartCountsAsStarted) {
    streams().refuseStart();
    makeWatcher()->start();
    EXPECT_EQ(log().lines().back(), "Glintmark: ファイル監視開始（バックグラウンドキュー）");
}

TEST_F(FileWatcherTest, WithoutAStreamPollingFindsNewFiles) {
    streams().refuseCreation();
    auto watcher = startedWatcher();
    EXPECT_THAT(log().lines(), IsEmpty());
    files().create("/home/kim/Links/a.webloc");
    queues().advance(4999ms);
    EXPECT_THAT(delivered(), IsEmpty());
    queues().advance(1ms);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/a.webloc"));
    log().forget();
    watcher->stop();
    EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(FileWatcherTest, TheStartLineIsNotWrittenWithoutAStream) {
    streams().refuseCreation();
    makeWatcher()->start();
    EXPECT_EQ(log().lines().size(), 2U);
}

TEST_F(FileWatcherTest, TheTimerIsMadeOnTheMainQueue) {
    auto watcher = makeWatcher();
    watcher->start();
    EXPECT_EQ(queues().activeTimers(), 0U);
    queues().runPending();
    EXPECT_EQ(queues().activeTimers(), 1U);
}

TEST_F(FileWatcherTest, StopTearsTheStreamDownInOrder) {
    auto watcher = startedWatcher();
    watcher->stop();
    EXPECT_THAT(stream().calls,
                ElementsAre("setDispatchQueue", "start", "stop", "invalidate", "destroy"));
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: ファイル監視停止"));
    EXPECT_EQ(queues().activeTimers(), 1U);
    queues().runPending();
    EXPECT_EQ(queues().activeTimers(), 0U);
}

TEST_F(FileWatcherTest, StoppingTwiceLogsOnce) {
    auto watcher = startedWatcher();
    watcher->stop();
    watcher->stop();
    queues().runPending();
    EXPECT_EQ(log().lines().size(), 1U);
}

TEST_F(FileWatcherTest, StoppingRightAfterStartingLeavesNoTimer) {
    auto watcher = makeWatcher();
    watcher->start();
    watcher->stop();
    queues().runPending();
    EXPECT_EQ(queues().activeTimers(), 0U);
}

TEST_F(FileWatcherTest, StoppingAWatcherThatNeverStartedIsHarmless) {
    auto watcher = makeWatcher();
    log().forget();
    watcher->stop();
    queues().runPending();
    EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(FileWatcherTest, AfterStopNothingIsReported) {
    auto watcher = startedWatcher();
    watcher->stop();
    queues().runPending();
    files().create("/home/kim/Links/a.webloc");
    streams().report(links);
    queues().advance(1min);
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_THAT(files().allListings(), IsEmpty());
}

TEST_F(FileWatcherTest, StopCancelsTheDebouncedScan) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    streams().report(links);
    queues().advance(499ms);
    watcher->stop();
    queues().advance(10s);
    EXPECT_EQ(watcher->passes, 0);
    EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatcherTest, AChangeThatArrivesWhileStoppingArmsNoScan) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    // The stream's queue is in the middle of the handler while the main thread stops.
    stream().onStop = [&] { stream().handler(std::vector{platform::DirectoryEvent{links, 0}}); };
    watcher->stop();
    watcher->handleDirectoryEvent(links, 0);
    queues().advance(10s);
    EXPECT_EQ(watcher->passes, 0);
    EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatcherTest, AScanQueuedBeforeStopStillReports) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    // At 5 s, after the timer but before the poll that the timer submits.
    queues().advance(4s);
    queues().main().asyncAfter(1s, [&] { watcher->stop(); });
    queues().advance(1s);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/a.webloc"));
    queues().advance(1min);
    EXPECT_EQ(files().listings(links), 1U);
}

TEST_F(FileWatcherTest, AStoppedWatcherCanStartAgainAndRemembersItsFiles) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    queues().advance(5s);
    watcher->stop();
    watcher->start();
    queues().runPending();
    files().create("/home/kim/Links/b.webloc");
    streams().report(links);
    queues().advance(500ms);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/a.webloc", "/home/kim/Links/b.webloc"));
}

TEST_F(FileWatcherTest, ReleasingAWatcherStopsIt) {
    auto watcher = startedWatcher();
    const std::weak_ptr<FileWatcher> weak = watcher;
    streams().report(links);
    queues().runPending();
    watcher.reset();
    EXPECT_TRUE(weak.expired());
    EXPECT_THAT(stream().calls,
                ElementsAre("setDispatchQueue", "start", "stop", "invalidate", "destroy"));
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: ファイル監視停止"));
    EXPECT_EQ(queues().liveSerialQueues(), 0U);
    queues().advance(1min);
    EXPECT_EQ(queues().activeTimers(), 0U);
    EXPECT_THAT(files().allListings(), IsEmpty());
}

TEST_F(FileWatcherTest, ATimerThatOutlivesItsWatcherForAMomentDoesNothing) {
    std::shared_ptr<OpenFileWatcher> watcher;
    // At 5 s the watcher is released just before its timer fires, which is not invalidated yet.
    queues().main().asyncAfter(5s, [&] { watcher.reset(); });
    watcher = startedWatcher();
    queues().advance(5s);
    EXPECT_THAT(files().allListings(), IsEmpty());
    EXPECT_EQ(queues().activeTimers(), 0U);
}

TEST_F(FileWatcherTest, TheBlockThatMakesTheTimerHoldsTheWatcher) {
    auto watcher = makeWatcher();
    const std::weak_ptr<FileWatcher> weak = watcher;
    watcher->start();
    watcher.reset();
    EXPECT_FALSE(weak.expired());
    queues().runPending();
    EXPECT_TRUE(weak.expired());
}

TEST_F(FileWatcherTest, TheLastReferenceCanBeReleasedOnTheWatchersOwnQueue) {
    auto watcher = startedWatcher();
    const std::weak_ptr<FileWatcher> weak = watcher;
    files().onListing = [&](const std::string&) { watcher.reset(); };  // in the middle of a poll
    queues().advance(5s);
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(queues().liveSerialQueues(), 0U);
    files().onListing = nullptr;
}

}  // namespace
}  // namespace glintmark
