#include "app/AppDelegate.h"
#include "tests/app/AppDelegateFixture.h"

namespace glintmark {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;
using namespace std::chrono_literals;

/// Records which of its operations are called.
class TracingDelegate : public AppDelegate {
public:
    std::vector<std::string> calls;
    std::vector<FileWatcherEvent> events;

    void setupStatusItem() override {
        calls.emplace_back("setupStatusItem");
        AppDelegate::setupStatusItem();
    }
    void setWatchedFolders(std::vector<std::string> folders) override {
        calls.emplace_back("setWatchedFolders");
        AppDelegate::setWatchedFolders(std::move(folders));
    }
    void setFileWatcher(std::shared_ptr<FileWatcher> watcher) override {
        calls.emplace_back("setFileWatcher");
        AppDelegate::setFileWatcher(std::move(watcher));
    }
    void startWatching() override {
        calls.emplace_back("startWatching");
        AppDelegate::startWatching();
    }
    void restartWatching() override {
        calls.emplace_back("restartWatching");
        AppDelegate::restartWatching();
    }
    void saveExtraFolders() override {
        calls.emplace_back("saveExtraFolders");
        AppDelegate::saveExtraFolders();
    }
    void rebuildMenu() override {
        calls.emplace_back("rebuildMenu");
        AppDelegate::rebuildMenu();
    }
    void handleFileEvent(const FileWatcherEvent& event) override { events.push_back(event); }
};

TEST_F(AppDelegateTest, BeforeTheLaunchEverythingIsEmpty) {
    const auto delegate = std::make_shared<AppDelegate>();
    EXPECT_EQ(delegate->statusItem(), nullptr);
    EXPECT_EQ(delegate->fileWatcher(), nullptr);
    EXPECT_THAT(delegate->watchedFolders(), IsEmpty());
}

TEST_F(AppDelegateTest, TheFirstLaunchWatchesTheDefaultFoldersAndStoresNothing) {
    const auto delegate = launched();
    EXPECT_THAT(delegate->watchedFolders(), ElementsAre(desktop, downloads));
    EXPECT_THAT(streams().stream(0).folders, ElementsAre(desktop, downloads));
    EXPECT_EQ(defaults().writes(), 0);
    EXPECT_FALSE(defaults().contains("extraFolders"));
}

TEST_F(AppDelegateTest, TheLaunchTakesItsStepsInOrder) {
    const auto delegate = launch(std::make_shared<TracingDelegate>());
    EXPECT_THAT(delegate->calls, ElementsAre("setupStatusItem", "setWatchedFolders",
                                             "startWatching", "setFileWatcher", "rebuildMenu"));
    EXPECT_THAT(notifications().authorizationRequests(), ElementsAre(6U));
}

TEST_F(AppDelegateTest, TheLaunchAsksForPermissionAfterTheFolderListAndBeforeTheWatcher) {
    class AskingDelegate : public AppDelegate {
    public:
        explicit AskingDelegate(doubles::Fakes& fakes) : fakes_(fakes) {}

        std::vector<std::size_t> requests;  ///< So far, at each of the two steps.

        void setWatchedFolders(std::vector<std::string> folders) override {
            note();
            AppDelegate::setWatchedFolders(std::move(folders));
        }
        void startWatching() override {
            note();
            EXPECT_EQ(watchedFolders().size(), 3U);
            EXPECT_EQ(fakes_.files.listings(desktop), 0U);  // no watcher was made
            AppDelegate::startWatching();
        }

    private:
        void note() { requests.push_back(fakes_.notifications.authorizationRequests().size()); }

        doubles::Fakes& fakes_;
    };
    storeExtraFolders({"/a"});
    const auto delegate = launch(std::make_shared<AskingDelegate>(platform()));
    EXPECT_THAT(delegate->requests, ElementsAre(0U, 1U));
    EXPECT_EQ(files().listings(desktop), 1U);
}

TEST_F(AppDelegateTest, TheFirstTwoFoldersAreThoseOfTheUser) {
    files().setDesktopAndDownloads("/home/kim/Schreibtisch", "/data/dl");
    storeExtraFolders({"/a", "/home/kim/Schreibtisch", desktop});
    const auto delegate = launched();
    EXPECT_THAT(delegate->watchedFolders(),
                ElementsAre("/home/kim/Schreibtisch", "/data/dl", "/a", desktop));
    EXPECT_THAT(streams().stream(0).folders,
                ElementsAre("/home/kim/Schreibtisch", "/data/dl", "/a", desktop));
    EXPECT_EQ(menu().items.at(6).title, "  ~/Schreibtisch");
    addFolder("/b");
    EXPECT_THAT(storedExtraFolders(), Optional(ElementsAre("/a", desktop, "/b")));
}

TEST_F(AppDelegateTest, TheLaunchReplacesTheFolderList) {
    auto delegate = std::make_shared<AppDelegate>();
    delegate->setWatchedFolders({"/elsewhere"});
    launch(delegate);
    EXPECT_THAT(delegate->watchedFolders(), ElementsAre(desktop, downloads));
}

TEST_F(AppDelegateTest, TheLaunchLogsItsFoldersDefaultsFirst) {
    storeExtraFolders({"/home/kim/Links", R"(/home/kim/a "b"\c)"});
    launched();
    EXPECT_EQ(
        log().messages().back(),
        R"(Glintmark: Started. Watching: ["/home/kim/Desktop", "/home/kim/Downloads", "/home/kim/Links", "/home/kim/a \"b\"\\c"])");
    EXPECT_THAT(log().messages(),
                ElementsAre(testing::StartsWith("Glintmark: 既存webloc"),
                            testing::StartsWith("Glintmark: 監視対象ディレクトリ"),
                            "Glintmark: ファイル監視開始（バックグラウンドキュー）",
                            testing::StartsWith("Glintmark: Started. Watching: ")));
}

TEST_F(AppDelegateTest, StoredFoldersAreRestoredOnceEachInOrder) {
    storeExtraFolders({"/a", "/b", "/a", desktop, "/a/"});
    const auto delegate = launched();
    EXPECT_THAT(delegate->watchedFolders(), ElementsAre(desktop, downloads, "/a", "/b", "/a/"));
    EXPECT_EQ(defaults().writes(), 0);
    EXPECT_EQ(storedExtraFolders()->size(), 5U);

    addFolder("/c");
    EXPECT_THAT(storedExtraFolders(), Optional(ElementsAre("/a", "/b", "/a/", "/c")));
}

TEST_F(AppDelegateTest, AStoredFolderThatIsMissingIsKeptAndWatched) {
    storeExtraFolders({"/missing"});
    const auto delegate = launched();
    EXPECT_THAT(delegate->watchedFolders(), ElementsAre(desktop, downloads, "/missing"));
    EXPECT_THAT(streams().stream(0).folders, Contains("/missing"));
}

class UnusableDefaultsTest : public AppDelegateTest, public testing::WithParamInterface<JSON> {};

TEST_P(UnusableDefaultsTest, AValueThatIsNotAListOfStringsIsIgnoredAndOverwritten) {
    defaults().store("extraFolders", GetParam());
    const auto delegate = launched();
    EXPECT_THAT(delegate->watchedFolders(), ElementsAre(desktop, downloads));
    EXPECT_EQ(defaults().writes(), 0);

    addFolder("/a");
    EXPECT_THAT(storedExtraFolders(), Optional(ElementsAre("/a")));
}

INSTANTIATE_TEST_SUITE_P(StringNumberMixedList, UnusableDefaultsTest,
                         testing::Values(JSON(std::string("/a")), JSON(7.0),
                                         JSON(JSON::Array{JSON(std::string("/a")), JSON(7.0)})));

TEST_F(AppDelegateTest, RemovingTheLastFolderStoresAnEmptyList) {
    storeExtraFolders({"/a"});
    const auto delegate = launched();
    removeFolder(2);
    EXPECT_THAT(delegate->watchedFolders(), ElementsAre(desktop, downloads));
    EXPECT_THAT(storedExtraFolders(), Optional(IsEmpty()));
}

TEST_F(AppDelegateTest, SavingSkipsTheFirstTwoFoldersWhateverTheyAre) {
    const auto delegate = std::make_shared<AppDelegate>();
    delegate->setWatchedFolders({"/a", "/b", desktop, "/c"});
    delegate->saveExtraFolders();
    EXPECT_THAT(storedExtraFolders(), Optional(ElementsAre(desktop, "/c")));

    delegate->setWatchedFolders({"/a"});
    delegate->saveExtraFolders();
    EXPECT_THAT(storedExtraFolders(), Optional(IsEmpty()));
}

TEST_F(AppDelegateTest, RestartingStopsStartsSavesAndRebuildsTheMenu) {
    const auto delegate = launch(std::make_shared<TracingDelegate>());
    const auto first = delegate->fileWatcher();
    delegate->modifyWatchedFolders().emplace_back("/a");
    delegate->calls.clear();
    log().forget();
    delegate->restartWatching();
    queues().runPending();
    EXPECT_THAT(delegate->calls, ElementsAre("restartWatching", "startWatching", "setFileWatcher",
                                             "saveExtraFolders", "rebuildMenu"));
    EXPECT_NE(delegate->fileWatcher(), first);
    EXPECT_EQ(log().messages().front(), "Glintmark: ファイル監視停止");
    EXPECT_TRUE(streams().stream(0).isDestroyed);
    EXPECT_THAT(streams().stream(1).folders, ElementsAre(desktop, downloads, "/a"));
    EXPECT_EQ(queues().activeTimers(), 1U);
}

TEST_F(AppDelegateTest, StartWatchingAloneDoesNotStopThePreviousWatcher) {
    const auto delegate = launched();
    const auto first = delegate->fileWatcher();
    delegate->startWatching();
    queues().runPending();
    EXPECT_FALSE(streams().stream(0).isDestroyed);
    EXPECT_EQ(queues().activeTimers(), 2U);
}

TEST_F(AppDelegateTest, TheWatcherHasItsOwnCopyOfTheFolders) {
    const auto delegate = launched();
    delegate->modifyWatchedFolders().emplace_back("/a");
    files().create("/a/new.webloc");
    queues().advance(5s);
    EXPECT_EQ(files().listings("/a"), 0U);
}

TEST_F(AppDelegateTest, EventsOfTheWatcherReachTheDelegateUnchanged) {
    const auto delegate = launch(std::make_shared<TracingDelegate>());
    files().create("/home/kim/Desktop/a.webloc");
    queues().advance(5s);
    EXPECT_THAT(delegate->events, ElementsAre(FileWatcherEvent{"/home/kim/Desktop/a.webloc", 0}));
}

TEST_F(AppDelegateTest, AnEventAfterTheDelegateIsGoneIsDropped) {
    auto delegate = std::make_shared<AppDelegate>();
    files().createDirectory(desktop);
    delegate->applicationDidFinishLaunching();
    queues().runPending();
    auto watcher = delegate->fileWatcher();
    const std::weak_ptr<AppDelegate> weak = delegate;
    delegate.reset();
    EXPECT_TRUE(weak.expired());  // the watcher does not keep it alive

    log().forget();
    files().create("/home/kim/Desktop/a.webloc");
    queues().advance(6s);
    EXPECT_THAT(log().lines(),
                ElementsAre("Glintmark: 新規webloc検知 → /home/kim/Desktop/a.webloc"));
}

TEST_F(AppDelegateTest, TheLaunchDoesNotWaitForTheNotificationPermission) {
    launched();
    EXPECT_THAT(log().lines(), Not(Contains("Glintmark: Notification authorized")));
    notifications().answerAuthorization(true);
    queues().runPending();
    EXPECT_EQ(log().lines().back(), "Glintmark: Notification authorized");
}

TEST_F(AppDelegateTest, ARefusedPermissionIsNotLoggedAndNotificationsAreStillSent) {
    const auto delegate = launched();
    log().forget();
    notifications().answerAuthorization(false);
    queues().runPending();
    delegate->showNotification("title", "body");
    queues().runPending();
    EXPECT_THAT(log().lines(), IsEmpty());
    EXPECT_EQ(notifications().requests().size(), 1U);
}

TEST_F(AppDelegateTest, AnErrorInsteadOfAPermissionIsNotLogged) {
    for (const bool granted : {false, true}) {
        launched();
        log().forget();
        notifications().answerAuthorization(granted, "no server");
        queues().runPending();
        EXPECT_THAT(log().lines(), IsEmpty());
    }
}

}  // namespace
}  // namespace glintmark
