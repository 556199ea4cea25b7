#include "tests/watcher/FileWatcherFixture.h"
#include "watcher/FileWatcher.h"

// Folders and link targets whose file system does not answer, and links that lead nowhere yet. A
// call that hangs lets the queue do its other work: here, by advancing the clock inside the call.

namespace glintmark {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using namespace std::chrono_literals;

class FileWatcherHangTest : public FileWatcherTest {
protected:
    /// The next listing of `directory` lasts so long. `meanwhile` runs at its beginning.
    void hangOnce(
        const std::string& directory, std::chrono::seconds duration,
        std::function<void()> meanwhile = [] {}) {
        files().onListing = [=, this](const std::string& listed) {
            if (listed == directory) {
                files().onListing = nullptr;
                meanwhile();
                queues().advance(duration);
            }
        };
    }
};

TEST_F(FileWatcherHangTest, TheInventoryWaitsTwoSecondsInAll) {
    const auto watcher = makeWatcher();
    EXPECT_EQ(files().listingLimit(), 2s);
}

TEST_F(FileWatcherHangTest, AFolderThatDoesNotAnswerIsLeftOutOfTheInventory) {
    files().create("/home/kim/Links/old.webloc");
    files().create("/home/kim/Desktop/old.webloc");
    files().stopAnswering(links);
    const auto watcher = makeWatcher();
    EXPECT_EQ(log().lines().front(), "Glintmark: 既存weblocファイル 1 件を記録");
    EXPECT_THAT(files().allListings(), Not(Contains(links)));
}

TEST_F(FileWatcherHangTest, WhatLiesInAFolderWhenItAnswersIsNotNew) {
    files().create("/home/kim/Links/old.webloc");
    files().stopAnswering(links);
    auto watcher = startedWatcher();
    files().create("/home/kim/Links/meanwhile.webloc");
    files().create("/home/kim/Desktop/a.webloc");
    streams().report(links);
    queues().advance(20s);
    EXPECT_THAT(files().allListings(), Not(Contains(links)));
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Desktop/a.webloc"));

    files().answer(links);
    queues().advance(5s);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Desktop/a.webloc"));

    files().create("/home/kim/Links/new.webloc");
    queues().advance(5s);
    EXPECT_THAT(delivered(),
                ElementsAre("/home/kim/Desktop/a.webloc", "/home/kim/Links/new.webloc"));
}

TEST_F(FileWatcherHangTest, AnEventInAFolderThatHasNotAnsweredMakesItsFilesNotNew) {
    files().create("/home/kim/Links/old.webloc");
    files().stopAnswering("/home/kim/Links/");
    auto watcher = startedWatcher({"/home/kim/Links/"});
    files().answer("/home/kim/Links/");
    streams().report("/home/kim/Links/");  // before a poll has taken the inventory
    queues().advance(6s);
    EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatcherHangTest, OtherFoldersGoOnBeingPolledWhileOneHangs) {
    auto watcher = startedWatcher();
    hangOnce(desktop, 20s, [this] {
        files().create("/home/kim/Links/a.webloc");
        files().create("/home/kim/Downloads/b.webloc");
    });
    std::size_t deliveredMeanwhile = 0;
    queues().main().asyncAfter(24s, [&] { deliveredMeanwhile = delivered().size(); });
    queues().advance(25s);
    EXPECT_EQ(deliveredMeanwhile, 2U);
    EXPECT_THAT(delivered(),
                ElementsAre("/home/kim/Downloads/b.webloc", "/home/kim/Links/a.webloc"));
}

TEST_F(FileWatcherHangTest, AFolderThatHangsIsListedAgainOnlyWhenItHasAnswered) {
    auto watcher = startedWatcher();
    hangOnce(desktop, 20s);
    std::size_t listingsMeanwhile = 0;
    queues().main().asyncAfter(24s, [&] { listingsMeanwhile = files().listings(desktop); });
    queues().advance(25s);
    EXPECT_EQ(listingsMeanwhile, 1U);
    // Once more, because of the polls that came meanwhile.
    EXPECT_EQ(files().listings(desktop), 2U);
}

TEST_F(FileWatcherHangTest, TheRestOfAPassIsScannedThoughOneDirectoryHangs) {
    auto watcher = startedWatcher();
    const std::vector<std::string> below{"/home/kim/Links/1", "/home/kim/Links/2",
                                         "/home/kim/Links/3"};
    for (const auto& directory : below) {
        files().create(directory + "/a.webloc");
        streams().report(directory);
    }
    std::size_t deliveredMeanwhile = 0;
    files().onListing = [&](const std::string&) {  // the first of the pass, whichever it is
        files().onListing = nullptr;
        queues().advance(20s);
        deliveredMeanwhile = delivered().size();
    };
    queues().advance(500ms);
    queues().runPending();
    EXPECT_EQ(deliveredMeanwhile, 2U);
    EXPECT_THAT(delivered(), UnorderedElementsAre(below[0] + "/a.webloc", below[1] + "/a.webloc",
                                                  below[2] + "/a.webloc"));
}

TEST_F(FileWatcherHangTest, ALinkIsFollowedOnAQueueOfItsOwn) {
    auto watcher = startedWatcher();
    files().create("/elsewhere/a.webloc");
    files().createLink("/home/kim/Links/link.webloc", "/elsewhere/a.webloc");
    std::vector<std::string> followingQueues;
    files().onFollowing = [&](const std::string&) {
        followingQueues.push_back(queues().current());
    };
    queues().advance(10s);
    EXPECT_THAT(followingQueues, ElementsAre("link-targets", "link-targets"));  // and its target
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/link.webloc"));
    EXPECT_THAT(deliveryQueues(), ElementsAre("main"));
    files().onFollowing = nullptr;
}

TEST_F(FileWatcherHangTest, ALinkThatHangsHoldsUpNothingAndIsFollowedOnce) {
    auto watcher = startedWatcher();
    files().createLink("/home/kim/Links/dead.webloc", "/elsewhere/a.webloc");
    int followed = 0;
    std::vector<std::string> deliveredMeanwhile;
    files().onFollowing = [&](const std::string& path) {
        if (path == "/home/kim/Links/dead.webloc" && ++followed == 1) {
            files().create("/home/kim/Links/a.webloc");
            queues().advance(20s);
            deliveredMeanwhile = delivered();
            EXPECT_EQ(followed, 1);
            files().create("/elsewhere/a.webloc");  // the mount answers
        }
    };
    queues().advance(30s);
    EXPECT_THAT(deliveredMeanwhile, ElementsAre("/home/kim/Links/a.webloc"));
    EXPECT_THAT(delivered(),
                ElementsAre("/home/kim/Links/a.webloc", "/home/kim/Links/dead.webloc"));
    files().onFollowing = nullptr;
}

TEST_F(FileWatcherHangTest, ALinkIsReportedOnceItsTargetExists) {
    auto watcher = startedWatcher();
    files().createLink("/home/kim/Links/link.webloc", "/elsewhere/a.webloc");
    queues().advance(20s);
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_THAT(log().lines(), IsEmpty());

    files().create("/elsewhere/a.webloc");
    streams().report(links);  // the next change of its folder
    queues().advance(500ms);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/link.webloc"));
}

TEST_F(FileWatcherHangTest, ALinkReplacedByAFileWhileItIsFollowedIsReportedOnce) {
    auto watcher = startedWatcher();
    files().createLink("/home/kim/Links/a.webloc", "/elsewhere/a.webloc");
    files().onFollowing = [&](const std::string&) {
        files().onFollowing = nullptr;
        files().remove("/home/kim/Links/a.webloc");
        files().create("/home/kim/Links/a.webloc");
        queues().advance(10s);
    };
    queues().advance(20s);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/a.webloc"));
}

TEST_F(FileWatcherHangTest, AWatcherCanGoAwayWhileALinkIsFollowed) {
    auto watcher = startedWatcher();
    const std::weak_ptr<FileWatcher> weak = watcher;
    files().createLink("/home/kim/Links/link.webloc", "/home/kim/Links");
    files().onFollowing = [&](const std::string&) {
        files().onFollowing = nullptr;
        watcher.reset();
    };
    queues().advance(10s);
    EXPECT_TRUE(weak.expired());
    EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(FileWatcherHangTest, RelativeAndEmptyFoldersGoToTheStreamAsTheyAre) {
    files().create("/home/kim/Links/a.webloc");
    auto watcher = startedWatcher({"", "Links", "./Links", links});
    EXPECT_THAT(stream().folders, ElementsAre(desktop, downloads, "", "Links", "./Links", links));
    files().create("/home/kim/Links/b.webloc");
    streams().report(links);
    queues().advance(20s);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/b.webloc"));
}

/// The timer of a replaced start is never invalidated, so the fixture's check does not apply.
class FileWatcherStartedTwiceTest : public FileWatcherTest {
protected:
    void TearDown() override { queues().runPending(); }
};

TEST_F(FileWatcherStartedTwiceTest, TheFirstStreamAndTimerAreReplacedAndGoOn) {
    auto watcher = startedWatcher();
    watcher->start();
    queues().runPending();
    EXPECT_EQ(streams().streamCount(), 2U);
    EXPECT_THAT(streams().stream(0).calls, ElementsAre("setDispatchQueue", "start"));
    EXPECT_EQ(queues().activeTimers(), 2U);
    files().create("/home/kim/Links/a.webloc");
    streams().stream(0).handler(std::vector{platform::DirectoryEvent{links, 0}});
    queues().advance(500ms);
    EXPECT_THAT(delivered(), ElementsAre("/home/kim/Links/a.webloc"));

    log().forget();
    watcher->stop();
    queues().runPending();
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: ファイル監視停止"));
    EXPECT_THAT(streams().stream(0).calls, ElementsAre("setDispatchQueue", "start"));
    EXPECT_THAT(streams().stream(1).calls, Contains("stop"));
    EXPECT_EQ(queues().activeTimers(), 1U);  // the replaced one

    watcher.reset();
    queues().advance(20s);  // it fires and does nothing
    EXPECT_THAT(streams().stream(0).calls, Contains("destroy"));
}

}  // namespace
}  // namespace glintmark
