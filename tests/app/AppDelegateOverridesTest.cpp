#include "app/AppDelegate.h"
#include "tests/app/AppDelegateFixture.h"

// The class calls its own operations virtually, so a subclass can replace each of them.

namespace glintmark {
namespace {

using platform::MenuItem;
using testing::ElementsAre;
using testing::IsEmpty;

/// Records the operations that the menu, the icon and the pipeline call.
class ReplacedDelegate : public AppDelegate {
public:
    std::vector<std::string> calls;

    TemplateImage createMenuBarIcon() override {
        calls.emplace_back("createMenuBarIcon");
        return AppDelegate::createMenuBarIcon();
    }
    BezierPath createStarPath(Point center, double outerRadius, double innerRadius,
                              std::int64_t points) override {
        calls.emplace_back("createStarPath");
        return AppDelegate::createStarPath(center, outerRadius, innerRadius, points);
    }
    void handleFileEvent(const FileWatcherEvent& event) override {
        calls.emplace_back("handleFileEvent");
        AppDelegate::handleFileEvent(event);
    }
    void processWeblocFile(const std::string& path) override {
        calls.emplace_back("processWeblocFile");
        AppDelegate::processWeblocFile(path);
    }
    void showNotification(const std::string& title, const std::string& body) override {
        calls.push_back("showNotification " + title + ", " + body);
    }
    void restartWatching() override { calls.emplace_back("restartWatching"); }
    void addFolder() override { calls.emplace_back("addFolder"); }
    void removeFolder(const MenuItem& sender) override {
        calls.push_back("removeFolder " + std::to_string(sender.tag));
    }
    void revealFolder(const MenuItem& sender) override {
        calls.push_back("revealFolder " + std::to_string(sender.tag));
    }
    void openWebsite() override { calls.emplace_back("openWebsite"); }
    void quit() override { calls.emplace_back("quit"); }
};

using AppDelegateOverridesTest = AppDelegateTest;

TEST_F(AppDelegateOverridesTest, TheLaunchDrawsTheIconThroughItsOperations) {
    const auto delegate = launch(std::make_shared<ReplacedDelegate>());
    EXPECT_THAT(delegate->calls, ElementsAre("createMenuBarIcon", "createStarPath"));
}

TEST_F(AppDelegateOverridesTest, EachMenuCommandCallsItsOperation) {
    storeExtraFolders({"/a", "/b"});
    const auto delegate = launch(std::make_shared<ReplacedDelegate>());
    delegate->calls.clear();
    for (const MenuItem& item : menu().items) {
        for (const MenuItem& child : item.submenu) {
            doubles::StatusItemRecord::choose(child);
        }
        if (item.action) {
            doubles::StatusItemRecord::choose(item);
        }
    }
    EXPECT_THAT(delegate->calls,
                ElementsAre("openWebsite", "openWebsite", "removeFolder 2", "revealFolder 2",
                            "removeFolder 3", "revealFolder 3", "addFolder", "quit"));
}

TEST_F(AppDelegateOverridesTest, AddingAndRemovingRestartThroughTheOperation) {
    storeExtraFolders({"/a"});
    const auto delegate = launch(std::make_shared<ReplacedDelegate>());
    delegate->calls.clear();
    platform().openPanel.choose("/b");
    delegate->AppDelegate::addFolder();
    EXPECT_THAT(delegate->calls, ElementsAre("restartWatching"));
    delegate->AppDelegate::removeFolder(menu().items.at(8).submenu.at(0));
    EXPECT_THAT(delegate->calls, ElementsAre("restartWatching", "restartWatching"));
    EXPECT_EQ(defaults().writes(), 0) << "only restarting saves";
}

TEST_F(AppDelegateOverridesTest, AFilePassesThroughEachStepOfThePipeline) {
    const auto delegate = launch(std::make_shared<ReplacedDelegate>());
    delegate->calls.clear();
    files().create("/home/kim/Desktop/a.webloc", "{ URL = \"https://h/\"; }");
    session().answer("https://h/favicon.ico", 200, "image 64x64 opaque");
    streams().report(desktop);
    queues().advance(std::chrono::seconds(2));
    EXPECT_THAT(delegate->calls,
                ElementsAre("handleFileEvent", "processWeblocFile",
                            "showNotification notification.iconApplied, a.webloc"));
    EXPECT_THAT(notifications().requests(), IsEmpty()) << "the operation was replaced";
}

TEST_F(AppDelegateOverridesTest, AProductPageThatCannotBeOpenedLeavesNoTrace) {
    const auto delegate = launched();
    log().forget();
    platform().workspace.refuse();
    delegate->openWebsite();
    EXPECT_THAT(platform().workspace.openedURLs(), ElementsAre("https://product.example/"));
    EXPECT_THAT(log().lines(), IsEmpty());
}

}  // namespace
}  // namespace glintmark
