#include "tests/watcher/FileWatcherFixture.h"
#include "watcher/FileWatcher.h"

// Changes, debounce, polling and the report of a file.

namespace glintmark {
namespace {

using platform::mustScanSubDirs;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using namespace std::chrono_literals;

TEST_F(FileWatcherTest, ABurstOfEventsMakesOneScan) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    for (int i = 0; i < 10; ++i) {
        streams().report(links);
        queues().advance(40ms);
    }
    queues().advance(459ms);
    EXPECT_EQ(watcher->passes, 0);

    queues().advance(1ms);  // 0.5 s after the tenth event
    EXPECT_EQ(watcher->passes, 1);
    EXPECT_THAT(files().allListings(), ElementsAre(links));
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/a.webloc"));
}

TEST_F(FileWatcherTest, EventsHalfASecondApartMakeAScanEach) {
    auto watcher = startedWatcher();
    streams().report(links);
    queues().advance(500ms);
    streams().report(links);
    queues().advance(500ms);
    EXPECT_EQ(watcher->passes, 2);
}

TEST_F(FileWatcherTest, TheScanCoversAllDirectoriesOfTheBurst) {
    auto watcher = startedWatcher();
    streams().report({{links, 0}, {"/home/kim/Links/sub", 0}});
    queues().advance(400ms);
    streams().report({{desktop, 0}, {links, 0}});
    queues().advance(500ms);
    EXPECT_THAT(files().allListings(), UnorderedElementsAre(links, "/home/kim/Links/sub", desktop));

    files().forgetListings();  // the scan emptied the set
    streams().report(downloads);
    queues().advance(500ms);
    EXPECT_THAT(files().allListings(), ElementsAre(downloads));
}

TEST_F(FileWatcherTest, OneTrailingSlashIsDropped) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    streams().report({{"/home/kim/Links/", 0}, {"/home/kim/Links", 0}});
    queues().advance(500ms);
    EXPECT_THAT(files().allListings(), ElementsAre("/home/kim/Links"));

    files().forgetListings();
    streams().report("/home/kim/Links//");
    queues().advance(500ms);
    EXPECT_THAT(files().allListings(), ElementsAre("/home/kim/Links/"));
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/a.webloc"));
}

TEST_F(FileWatcherTest, AnEventAtTheRootIsHarmless) {
    auto watcher = startedWatcher();
    streams().report("/");
    queues().advance(500ms);
    EXPECT_THAT(files().allListings(), ElementsAre(""));
}

TEST_F(FileWatcherTest, LostChangesScanAllWatchedFoldersInsteadOfTheirOwn) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/sub/below.webloc");
    files().create("/home/kim/Desktop/a.webloc");
    streams().report("/home/kim/Links/sub", mustScanSubDirs);
    queues().advance(500ms);
    EXPECT_THAT(files().allListings(), UnorderedElementsAre(desktop, downloads, links));
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Desktop/a.webloc"));
}

TEST_F(FileWatcherTest, OtherFlagsAreIgnored) {
    auto watcher = startedWatcher();
    streams().report("/home/kim/Links/sub", ~mustScanSubDirs);
    queues().advance(500ms);
    EXPECT_THAT(files().allListings(), ElementsAre("/home/kim/Links/sub"));

    files().forgetListings();
    streams().report("/home/kim/Links/sub", ~0U);
    queues().advance(500ms);
    EXPECT_THAT(files().allListings(), UnorderedElementsAre(desktop, downloads, links));
}

TEST_F(FileWatcherTest, PollsComeEveryFiveSecondsOverTheWatchedFoldersInOrder) {
    auto watcher = startedWatcher();
    queues().advance(4999ms);
    EXPECT_THAT(files().allListings(), IsEmpty());
    queues().advance(1ms);
    EXPECT_THAT(files().allListings(), ElementsAre(desktop, downloads, links));
    queues().advance(5s);
    EXPECT_EQ(files().allListings().size(), 6U);
    EXPECT_EQ(watcher->passes, 0);
}

TEST_F(FileWatcherTest, APollNeitherDelaysNorReplacesTheDebouncedScan) {
    auto watcher = startedWatcher();
    queues().advance(4800ms);
    streams().report("/home/kim/Links/sub");
    queues().advance(499ms);  // past the poll at 5 s
    EXPECT_EQ(files().listings("/home/kim/Links/sub"), 0U);
    EXPECT_EQ(files().listings(links), 1U);
    queues().advance(1ms);
    EXPECT_EQ(files().listings("/home/kim/Links/sub"), 1U);
}

TEST_F(FileWatcherTest, ScansRunOnTheWatchersQueueAndReportsOnTheMainQueue) {
    auto watcher = startedWatcher();
    std::vector<std::string> listingQueues;
    files().onListing = [&](const std::string&) { listingQueues.push_back(queues().current()); };
    files().create("/home/kim/Links/a.webloc");
    streams().report(links);
    queues().advance(500ms);
    files().create("/home/kim/Links/b.webloc");
    queues().advance(4500ms);
    EXPECT_EQ(listingQueues.size(), 4U);
    EXPECT_THAT(listingQueues, Each(queueLabel));
    EXPECT_THAT(deliveryQueues(), ElementsAre("main", "main"));
    files().onListing = nullptr;
}

TEST_F(FileWatcherTest, AFileIsReportedOnceThoughStreamAndPollFindIt) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    streams().report(links);
    queues().advance(20s);
    EXPECT_THAT(events(), ElementsAre(FileWatcherEvent{"/home/kim/Links/a.webloc", 0}));
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: 新規webloc検知 → /home/kim/Links/a.webloc"));
}

TEST_F(FileWatcherTest, AFileThatThePollFoundFirstIsNotReportedByTheStream) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    queues().advance(5s);
    streams().report(links);
    queues().advance(1s);
    EXPECT_EQ(delivered().size(), 1U);
}

TEST_F(FileWatcherTest, EventsCarryNoFlagsWhateverTheStreamSays) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    streams().report(links, 0xffffffff);
    queues().advance(500ms);
    ASSERT_EQ(events().size(), 1U);
    EXPECT_EQ(events().front().flags, 0U);
}

TEST_F(FileWatcherTest, FilesInASubfolderAreFoundThroughTheStreamAlone) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/sub/below.webloc");
    queues().advance(20s);
    EXPECT_THAT(delivered(), IsEmpty());
    streams().report("/home/kim/Links/sub");
    queues().advance(500ms);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/sub/below.webloc"));
}

TEST_F(FileWatcherTest, AnOldFileInASubfolderIsNewAtTheFirstChangeThere) {
    files().create("/home/kim/Links/sub/old.webloc");
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/sub/other.txt");
    streams().report("/home/kim/Links/sub");
    queues().advance(500ms);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/sub/old.webloc"));
}

TEST_F(FileWatcherTest, OnlyTheExactSuffixCounts) {
    auto watcher = startedWatcher();
    for (const auto* name : {"A.WEBLOC", "b.Webloc", "c.webloc.tmp", "webloc", "d.webloc"}) {
        files().create(std::string(links) + "/" + name);
    }
    queues().advance(5s);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/d.webloc"));
}

TEST_F(FileWatcherTest, ADirectoryWithTheSuffixIsReportedAsAFile) {
    auto watcher = startedWatcher();
    files().createDirectory("/home/kim/Links/folder.webloc");
    queues().advance(5s);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/folder.webloc"));
}

TEST_F(FileWatcherTest, AFileThatVanishesAfterTheListingIsNotRecorded) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    files().vanishOnceListed("/home/kim/Links/a.webloc");
    queues().advance(5s);
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_THAT(log().lines(), IsEmpty());

    files().create("/home/kim/Links/a.webloc");
    queues().advance(5s);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/a.webloc"));
}

TEST_F(FileWatcherTest, OnlyUnknownFilesAreTestedForExistence) {
    files().create("/home/kim/Links/old.webloc");
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/new.webloc");
    queues().advance(20s);
    EXPECT_THAT(files().existenceTests(), ElementsAre("/home/kim/Links/new.webloc"));
}

TEST_F(FileWatcherTest, ListingsThatChangeTheirOrderReportOnlyWhatIsNew) {
    for (const auto* path : {"/home/kim/Links/a.webloc", "/home/kim/Links/b.webloc",
                             "/home/kim/Links/c.webloc", "/home/kim/Desktop/d.webloc"}) {
        files().create(path);
    }
    auto watcher = startedWatcher();
    queues().advance(10s);  // two polls, which list everything in the same order

    files().create("/home/kim/Desktop/new.webloc");  // between two known ones
    files().remove("/home/kim/Links/a.webloc");
    queues().advance(5s);
    files().remove("/home/kim/Links/b.webloc");
    files().create("/home/kim/Links/newer.webloc");
    files().create("/home/kim/Links/b.webloc");  // now listed after "newer.webloc"
    files().create("/home/kim/Links/a.webloc");
    streams().report(links);  // so this folder is listed alone, not after others
    queues().advance(10s);
    EXPECT_THAT(delivered(),
                ElementsAre("/home/kim/Desktop/new.webloc", "/home/kim/Links/newer.webloc"));
    EXPECT_THAT(files().existenceTests(),
                ElementsAre("/home/kim/Desktop/new.webloc", "/home/kim/Links/newer.webloc"));
}

TEST_F(FileWatcherTest, AFileMadeAgainUnderItsPathIsNotReportedAgain) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    queues().advance(5s);
    files().remove("/home/kim/Links/a.webloc");
    queues().advance(5s);
    files().create("/home/kim/Links/a.webloc");
    queues().advance(5s);
    EXPECT_EQ(delivered().size(), 1U);
}

TEST_F(FileWatcherTest, ARenamedFileIsReportedUnderItsNewPath) {
    files().create("/home/kim/Links/a.webloc");
    auto watcher = startedWatcher();
    files().rename("/home/kim/Links/a.webloc", "/home/kim/Links/b.webloc");
    queues().advance(5s);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/b.webloc"));
}

TEST_F(FileWatcherTest, DirectoriesThatCannotBeListedAreSkippedWithoutALogLine) {
    auto watcher = startedWatcher();
    files().remove(links);
    files().makeUnreadable(downloads);
    files().create("/home/kim/Desktop/a.webloc");
    streams().report({{links, 0}, {downloads, 0}, {desktop, 0}, {"/home/kim/Desktop/a.webloc", 0}});
    queues().advance(500ms);
    EXPECT_EQ(files().allListings().size(), 4U);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Desktop/a.webloc"));
}

TEST_F(FileWatcherTest, FilesReachTheOwnerInTheOrderInWhichTheyWereFound) {
    auto watcher = startedWatcher();
    for (const auto* path : {"/home/kim/Links/b.webloc", "/home/kim/Links/a.webloc",
                             "/home/kim/Desktop/c.webloc", "/home/kim/Links/.d.webloc"}) {
        files().create(path);
    }
    queues().advance(5s);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Desktop/c.webloc", "/home/kim/Links/b.webloc",
                                         "/home/kim/Links/a.webloc", "/home/kim/Links/.d.webloc"));
}

TEST_F(FileWatcherTest, AScanRecordsAndLogsAllItsFilesBeforeTheOwnerHearsOfThem) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/a.webloc");
    files().create("/home/kim/Links/b.webloc");
    watcher->scanDirectoryShallow(links);
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: 新規webloc検知 → /home/kim/Links/a.webloc",
                                           "Glintmark: 新規webloc検知 → /home/kim/Links/b.webloc"));
    EXPECT_THAT(delivered(), IsEmpty());
    queues().runPending();
    EXPECT_EQ(delivered().size(), 2U);
}

TEST_F(FileWatcherTest, ADeliveryHoldsTheWatcher) {
    auto watcher = startedWatcher();
    const std::weak_ptr<FileWatcher> weak = watcher;
    files().create("/home/kim/Links/a.webloc");
    watcher->scanDirectoryShallow(links);
    watcher.reset();
    EXPECT_FALSE(weak.expired());
    queues().runPending();
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/a.webloc"));
    EXPECT_TRUE(weak.expired());
}

TEST_F(FileWatcherTest, ThePathIsJoinedWithExactlyOneSlash) {
    auto watcher = startedWatcher({"/home/kim/Links/"});
    files().create("/home/kim/Links/a.webloc");
    queues().advance(5s);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/a.webloc"));
}

TEST_F(FileWatcherTest, APercentSignInAPathIsADirectiveOnlyInTheLog) {
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/100%d %s.webloc");
    queues().advance(5s);
    EXPECT_THAT(log().lines(),
                ElementsAre("Glintmark: 新規webloc検知 → /home/kim/Links/1000 (null).webloc"));
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/100%d %s.webloc"));
}

}  // namespace
}  // namespace glintmark
