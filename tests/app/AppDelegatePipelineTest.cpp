#include <algorithm>
#include <cstddef>
#include <string>

#include "app/AppDelegate.h"
#include "tests/app/AppDelegateFixture.h"

namespace glintmark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

const char* const path = "/home/kim/Desktop/My Site.webloc";
const char* const link = "https://site.example/page?q=1";

std::string weblocWith(const std::string& url) {
    return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>URL</key>)"
           "<string>" +
           url + "</string></dict></plist>";
}

class AppDelegatePipelineTest : public AppDelegateTest {
protected:
    AppDelegatePipelineTest() {
        platform().bundle.texts = {{"notification.iconApplied", "Icon set"}};
        files().create(path, weblocWith(link));
        session().answer("https://site.example/favicon.ico", 200, "image 64x64 opaque");
    }

    std::shared_ptr<AppDelegate> delegate() { return delegate_; }

    /// Lets the whole pipeline run for one event.
    void process(const std::string& file) {
        delegate_->handleFileEvent({file, 0});
        queues().runUntilIdle();
    }

    void TearDown() override {
        delegate_.reset();
        AppDelegateTest::TearDown();
    }

private:
    std::shared_ptr<AppDelegate> delegate_ = std::make_shared<AppDelegate>();
};

TEST_F(AppDelegatePipelineTest, AFileGetsItsIconAndANotification) {
    process(path);
    EXPECT_THAT(log().lines(),
                ElementsAre("Glintmark: webloc detected → /home/kim/Desktop/My Site.webloc",
                            "Glintmark: URL → https://site.example/page?q=1",
                            "Glintmark: 採用 → faviconICO (64x64, 透明: false)",
                            "Glintmark: Favicon fetched → https://site.example/page?q=1",
                            "Glintmark: アイコン適用成功 → /home/kim/Desktop/My Site.webloc",
                            "Glintmark: Icon applied → /home/kim/Desktop/My Site.webloc"));
    ASSERT_EQ(platform().workspace.icons().size(), 1U);
    EXPECT_EQ(platform().workspace.icons().front().path, path);
    platform::FileIdentity read;
    ASSERT_TRUE(files().contents(path, &read));
    EXPECT_EQ(platform().workspace.icons().front().read, read) << "the icon is for the file read";
    EXPECT_EQ(platform().workspace.icons().front().image.size(), (Size{512, 512}));
    ASSERT_EQ(notifications().requests().size(), 1U);
    EXPECT_EQ(notifications().requests().front().title, "Icon set");
    EXPECT_EQ(notifications().requests().front().body, "My Site.webloc");
    EXPECT_THAT(notifications().requestQueues(), ElementsAre("main"));
}

TEST_F(AppDelegatePipelineTest, NoIconIsPreparedOnTheMainQueue) {
    session().answer("https://site.example/favicon.ico", 200, "image 1100x1000 opaque");
    std::vector<std::string> where;
    platform().workspace.preparing = [&] { where.push_back(queues().current()); };
    process(path);
    ASSERT_EQ(platform().workspace.icons().size(), 1U);
    EXPECT_TRUE(platform().workspace.icons().front().image.bitmap());
    EXPECT_FALSE(where.empty());
    EXPECT_THAT(where, testing::Each(testing::Ne("main")));
}

TEST_F(AppDelegatePipelineTest, AtMost128LinksAreFetchedAtOnceAndNoneIsLost) {
    constexpr std::size_t links = 150;
    constexpr std::size_t requestsPerLink =
        8;  // page, touch icons, manifests, service, favicon.ico
    std::size_t maximum = 0;
    platform().workspace.preparing = [&] {
        const std::size_t started = session().requestedURLs().size() / requestsPerLink;
        maximum = std::max(maximum, started - platform().workspace.icons().size());
    };
    for (std::size_t i = 0; i < links; ++i) {
        const std::string site = "https://site-" + std::to_string(i) + ".example";
        const std::string file = "/home/kim/Desktop/" + std::to_string(i) + ".webloc";
        files().create(file, weblocWith(site));
        session().answer(site + "/favicon.ico", 200, "image 64x64 opaque", 50ms);
        delegate()->handleFileEvent({file, 0});
    }
    queues().runUntilIdle();
    EXPECT_EQ(platform().workspace.icons().size(), links);
    EXPECT_EQ(notifications().requests().size(), links);
    EXPECT_GT(maximum, 64U);
    EXPECT_LE(maximum, 128U);
}

TEST_F(AppDelegatePipelineTest, AFetchThatEndsTooLateIsOneFailureAndItsResultIsDropped) {
    constexpr auto late = 3 * AdmissionGate::minimumHold;
    session().answer("https://site.example/favicon.ico", 200, "image 64x64 opaque", late);
    delegate()->handleFileEvent({path, 0});
    queues().advance(AdmissionGate::minimumHold);
    log().forget();
    queues().advance(AdmissionGate::minimumHold + 1s);
    EXPECT_THAT(log().lines(),
                ElementsAre("Glintmark: Favicon fetch failed → " + std::string(link)));
    log().forget();
    queues().runUntilIdle();
    EXPECT_GE(queues().now(), late);
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: 採用 → faviconICO (64x64, 透明: false)"));
    EXPECT_THAT(platform().workspace.icons(), IsEmpty());
}

TEST_F(AppDelegatePipelineTest, LargeLinkFilesAreReadOneAfterTheOther) {
    const auto filler = std::string(std::size_t{20} * 1024 * 1024, ' ');
    for (const auto* name : {"/a.webloc", "/b.webloc", "/c.webloc"}) {
        files().create(name, weblocWith("https://site.example") + filler);
    }
    files().create("/small.webloc", weblocWith("https://site.example"));
    std::vector<std::string> read;
    std::vector<std::string> readMeanwhile;
    files().onReading = [&](const std::string& file) {
        read.push_back(file);
        if (read.size() == 1) {
            for (const auto* name : {"/b.webloc", "/c.webloc", "/small.webloc"}) {
                delegate()->processWeblocFile(name);
            }
            readMeanwhile = read;
        }
    };
    delegate()->processWeblocFile("/a.webloc");
    EXPECT_THAT(readMeanwhile, ElementsAre("/a.webloc", "/small.webloc"));
    queues().runUntilIdle();
    EXPECT_THAT(read, ElementsAre("/a.webloc", "/small.webloc", "/b.webloc", "/c.webloc"));
}

TEST_F(AppDelegatePipelineTest, TheSessionIsPreparedDuringTheDelay) {
    delegate()->handleFileEvent({path, 0});
    EXPECT_EQ(session().preparations(), 1);
    delegate()->handleFileEvent({"/home/kim/Desktop/a.txt", 0});
    EXPECT_EQ(session().preparations(), 1);
    queues().runUntilIdle();
}

TEST_F(AppDelegatePipelineTest, OtherPathsAreIgnoredAndNotLogged) {
    for (const auto* other : {"/home/kim/Desktop/a.webloc.tmp", "/home/kim/Desktop/A.WEBLOC",
                              "/home/kim/Desktop/webloc", ""}) {
        process(other);
    }
    EXPECT_THAT(log().lines(), IsEmpty());
    EXPECT_EQ(queues().now(), 0s);
}

TEST_F(AppDelegatePipelineTest, TheFlagsOfAnEventAreIgnored) {
    delegate()->handleFileEvent({path, 0xffffffff});
    queues().runUntilIdle();
    EXPECT_EQ(platform().workspace.icons().size(), 1U);
}

class QueueTracingDelegate : public AppDelegate {
public:
    QueueTracingDelegate(const doubles::VirtualQueues& queues, std::vector<std::string>& calls)
        : queues_(queues), calls_(calls) {}

    void processWeblocFile(const std::string& file) override { note("process " + file); }
    void showNotification(const std::string& title, const std::string& body) override {
        note("notify " + title + ", " + body);
    }

private:
    void note(const std::string& call) { calls_.push_back(call + " @" + queues_.current()); }

    const doubles::VirtualQueues& queues_;
    std::vector<std::string>& calls_;
};

TEST_F(AppDelegatePipelineTest, TheFileIsProcessedHalfASecondLaterOnTheGlobalQueue) {
    std::vector<std::string> calls;
    const auto tracing = std::make_shared<QueueTracingDelegate>(queues(), calls);
    tracing->handleFileEvent({"/a.webloc", 0});
    queues().advance(499ms);
    EXPECT_THAT(calls, IsEmpty());
    queues().advance(1ms);
    EXPECT_THAT(calls, ElementsAre("process /a.webloc @global"));
}

TEST_F(AppDelegatePipelineTest, TwoEventsForOnePathMakeTwoIndependentRuns) {
    delegate()->handleFileEvent({path, 0});
    queues().advance(100ms);
    delegate()->handleFileEvent({path, 0});
    queues().runUntilIdle();
    EXPECT_EQ(platform().workspace.icons().size(), 2U);
    ASSERT_EQ(notifications().requests().size(), 2U);
    EXPECT_NE(notifications().requests()[0].identifier, notifications().requests()[1].identifier);

    process(path);  // nothing is remembered
    EXPECT_EQ(platform().workspace.icons().size(), 3U);
    EXPECT_EQ(notifications().requests().size(), 3U);
}

TEST_F(AppDelegatePipelineTest, PendingWorkHoldsTheDelegate) {
    auto own = std::make_shared<AppDelegate>();
    const std::weak_ptr<AppDelegate> weak = own;
    session().answer("https://site.example/favicon.ico", 200, "image 64x64 opaque", 3s);
    own->handleFileEvent({path, 0});
    own.reset();
    queues().advance(1s);
    EXPECT_FALSE(weak.expired());
    queues().runUntilIdle();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(notifications().requests().size(), 1U);
}

TEST_F(AppDelegatePipelineTest, AFileThatDisappearsFailsTheExtraction) {
    delegate()->handleFileEvent({path, 0});
    files().remove(path);
    queues().runUntilIdle();
    EXPECT_THAT(log().lines(),
                ElementsAre("Glintmark: webloc detected → /home/kim/Desktop/My Site.webloc",
                            "Glintmark: ファイル読み込み失敗 → /home/kim/Desktop/My Site.webloc",
                            "Glintmark: URL extraction failed → /home/kim/Desktop/My Site.webloc"));
    EXPECT_THAT(session().requests(), IsEmpty());
    EXPECT_THAT(notifications().requests(), IsEmpty());
}

TEST_F(AppDelegatePipelineTest, AFolderWithTheEndingPassesTheFilterAndFailsTheExtraction) {
    files().createDirectory("/home/kim/Desktop/folder.webloc");
    process("/home/kim/Desktop/folder.webloc");
    EXPECT_EQ(log().lines().back(),
              "Glintmark: URL extraction failed → /home/kim/Desktop/folder.webloc");
}

TEST_F(AppDelegatePipelineTest, WithoutAnImageThereIsOneFailureLineAndNoNotification) {
    session().answer("https://site.example/favicon.ico", 404, "");
    process(path);
    EXPECT_THAT(log().lines(),
                ElementsAre("Glintmark: webloc detected → /home/kim/Desktop/My Site.webloc",
                            "Glintmark: URL → https://site.example/page?q=1",
                            "Glintmark: Favicon fetch failed → https://site.example/page?q=1"));
    EXPECT_THAT(platform().workspace.icons(), IsEmpty());
    EXPECT_THAT(notifications().requests(), IsEmpty());
}

TEST_F(AppDelegatePipelineTest, TheLinkIsPassedOnAsItWasRead) {
    files().create(path, weblocWith("  site.example "));
    process(path);
    EXPECT_EQ(log().lines()[1], "Glintmark: URL →   site.example ");
    EXPECT_EQ(log().lines()[2], "Glintmark: Favicon fetch failed →   site.example ");
    EXPECT_THAT(session().requests(), IsEmpty());
}

TEST_F(AppDelegatePipelineTest, AnIconThatCannotBeSetIsStillNotified) {
    platform().workspace.refuse();
    process(path);
    const auto lines = log().lines();
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(lines[4], "Glintmark: アイコン適用失敗 → /home/kim/Desktop/My Site.webloc");
    EXPECT_EQ(lines[5], "Glintmark: Icon applied → /home/kim/Desktop/My Site.webloc");
    EXPECT_EQ(notifications().requests().size(), 1U);
}

TEST_F(AppDelegatePipelineTest, AnImageWhosePixelsCannotBeHadIsNeverSet) {
    session().answer("https://site.example/favicon.ico", 200, "image 64x64");  // only has a size
    process(path);
    const auto lines = log().lines();
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(lines[3], "Glintmark: Favicon fetched → https://site.example/page?q=1");
    EXPECT_EQ(lines[4], "Glintmark: アイコン適用失敗 → /home/kim/Desktop/My Site.webloc");
    EXPECT_EQ(lines[5], "Glintmark: Icon applied → /home/kim/Desktop/My Site.webloc");
    EXPECT_THAT(platform().workspace.preparedIcons(), IsEmpty());
    EXPECT_EQ(notifications().requests().size(), 1U);
}

TEST_F(AppDelegatePipelineTest, ARejectedNotificationIsLogged) {
    notifications().rejectNext("The name is not activatable");
    process(path);
    EXPECT_EQ(log().lines().back(), "Glintmark: Notification error → The name is not activatable");
}

TEST_F(AppDelegatePipelineTest, AnAcceptedNotificationIsNotLogged) {
    delegate()->showNotification("title", "body");
    queues().runPending();
    EXPECT_THAT(log().lines(), IsEmpty());
    ASSERT_EQ(notifications().requests().size(), 1U);
    EXPECT_EQ(notifications().requests().front().title, "title");
    EXPECT_EQ(notifications().requests().front().body, "body");
}

TEST_F(AppDelegatePipelineTest, TheIdentifierIsAnUpperCaseUUID) {
    delegate()->showNotification("title", "body");
    EXPECT_THAT(
        notifications().requests().front().identifier,
        testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}"));
}

TEST_F(AppDelegatePipelineTest, WithoutATranslationTheKeyIsTheTitle) {
    platform().bundle.texts.clear();
    process(path);
    ASSERT_EQ(notifications().requests().size(), 1U);
    EXPECT_EQ(notifications().requests().front().title, "notification.iconApplied");
}

TEST_F(AppDelegatePipelineTest, ANewFileInAWatchedFolderGetsItsIcon) {
    files().remove(path);
    const auto whole = launched();
    files().create(path, weblocWith(link));
    streams().report(desktop);
    queues().advance(500ms);  // the debounce
    queues().advance(500ms);  // the delay before the file is read
    queues().runPending();
    EXPECT_EQ(log().lines().back(), "Glintmark: Icon applied → /home/kim/Desktop/My Site.webloc");
    ASSERT_EQ(notifications().requests().size(), 1U);
    EXPECT_EQ(queues().now(), 1s);
}

}  // namespace
}  // namespace glintmark
