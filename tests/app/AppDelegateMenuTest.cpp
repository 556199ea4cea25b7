#include <cmath>
#include <limits>
#include <numbers>

#include "app/AppDelegate.h"
#include "tests/app/AppDelegateFixture.h"

namespace glintmark {
namespace {

using platform::MenuItem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

const char* const separator = "---";

/// One line for each item: title, key, state and submenu with tags.
std::string described(const MenuItem& item) {
    if (item.isSeparator) {
        return separator;
    }
    std::string text = item.title;
    if (!item.keyEquivalent.empty()) {
        text += " [" + item.keyEquivalent + "]";
    }
    if (!item.enabled) {
        text += " (disabled)";
    }
    if (item.action) {
        text += " !";
    }
    for (const auto& child : item.submenu) {
        text += " > " + described(child) + " #" + std::to_string(child.tag);
    }
    return text;
}

std::vector<std::string> described(const platform::Menu& menu) {
    std::vector<std::string> lines;
    for (const auto& item : menu.items) {
        lines.push_back(described(item));
    }
    return lines;
}

std::string described(Point point) {
    return " " + std::to_string(point.x) + "," + std::to_string(point.y);
}

/// One line for each element: its kind and its points.
std::vector<std::string> described(const BezierPath& path) {
    std::vector<std::string> lines;
    for (const auto& element : path.elements()) {
        if (const auto* move = std::get_if<BezierPath::MoveTo>(&element)) {
            lines.push_back("move" + described(move->point));
        } else if (const auto* line = std::get_if<BezierPath::LineTo>(&element)) {
            lines.push_back("line" + described(line->point));
        } else if (const auto* curve = std::get_if<BezierPath::CurveTo>(&element)) {
            lines.push_back("curve" + described(curve->control1) + described(curve->control2) +
                            described(curve->point));
        } else {
            lines.emplace_back("close");
        }
    }
    return lines;
}

class AppDelegateMenuTest : public AppDelegateTest {
protected:
    AppDelegateMenuTest() { platform().bundle.info["CFBundleShortVersionString"] = "2.5"; }

    const MenuItem& itemTitled(const std::string& title) {
        for (const auto& item : menu().items) {
            if (item.title == title) {
                return item;
            }
        }
        ADD_FAILURE() << "no item " << title;
        static const MenuItem none;
        return none;
    }
};

TEST_F(AppDelegateMenuTest, TheMenuWithTheDefaultFolders) {
    launched();
    EXPECT_THAT(described(menu()),
                ElementsAre("Glintmark v2.5 !", "Made by the Glintmark developers !", separator,
                            "menu.watching", separator, "menu.folders (disabled)", "  ~/Desktop",
                            "  ~/Downloads", separator, "menu.addFolder [a] !", separator,
                            "menu.quit [q] !"));
}

TEST_F(AppDelegateMenuTest, TheMenuWithThreeAddedFolders) {
    storeExtraFolders({"/home/kim/Links", "/srv/links", "/mnt/home/kim/x/home/kim"});
    launched();
    EXPECT_THAT(described(menu()),
                ElementsAre("Glintmark v2.5 !", "Made by the Glintmark developers !", separator,
                            "menu.watching", separator, "menu.folders (disabled)", "  ~/Desktop",
                            "  ~/Downloads",
                            "  ~/Links > menu.removeFolder ! #2 > menu.revealInFinder ! #2",
                            "  /srv/links > menu.removeFolder ! #3 > menu.revealInFinder ! #3",
                            "  /mnt~/x~ > menu.removeFolder ! #4 > menu.revealInFinder ! #4",
                            separator, "menu.addFolder [a] !", separator, "menu.quit [q] !"));
}

TEST_F(AppDelegateMenuTest, ItemsWithoutActionAreGreyedAndSubmenusOpen) {
    storeExtraFolders({"/a"});
    launched();
    EXPECT_FALSE(itemTitled("menu.watching").isSelectable());
    EXPECT_FALSE(itemTitled("menu.folders").isSelectable());
    EXPECT_FALSE(itemTitled("  ~/Desktop").isSelectable());
    EXPECT_TRUE(itemTitled("  /a").isSelectable());
    EXPECT_TRUE(itemTitled("menu.quit").isSelectable());
}

TEST_F(AppDelegateMenuTest, TextsComeFromTheStringTables) {
    platform().bundle.texts = {{"menu.watching", "Beobachtet"}, {"menu.quit", "Beenden"}};
    launched();
    EXPECT_EQ(described(menu())[3], "Beobachtet");
    EXPECT_EQ(described(menu()).back(), "Beenden [q] !");
}

TEST_F(AppDelegateMenuTest, WithoutAVersionAQuestionMarkShows) {
    platform().bundle.info.clear();
    launched();
    EXPECT_EQ(menu().items.front().title, "Glintmark v?");
}

TEST_F(AppDelegateMenuTest, FolderLinesShowTheHomeFolderAsATilde) {
    files().setHome("/Users/kim");
    launched();
    EXPECT_EQ(menu().items.at(6).title, "  ~/Desktop");
}

TEST_F(AppDelegateMenuTest, OverlappingHomePathsAreReplacedFromTheLeft) {
    files().setHome("/a/a");
    storeExtraFolders({"/a/a/a", "/a/a/a/a"});
    launched();
    EXPECT_EQ(menu().items.at(8).title, "  ~/a");
    EXPECT_EQ(menu().items.at(9).title, "  ~~");
}

TEST_F(AppDelegateMenuTest, TheStatusItemIsSquareWithIconAndAnEmptyMenuAtFirst) {
    launched();
    EXPECT_EQ(platform().statusBar.items().size(), 1U);
    EXPECT_EQ(statusItem().length, -2);
    EXPECT_TRUE(statusItem().image.has_value());
    ASSERT_EQ(statusItem().menus.size(), 2U);
    EXPECT_THAT(statusItem().menus.front().items, IsEmpty());
}

TEST_F(AppDelegateMenuTest, AnItemWithoutButtonGetsNoIcon) {
    platform().statusBar.makeItemsWithoutButton();
    launched();
    EXPECT_FALSE(statusItem().image.has_value());
    EXPECT_EQ(menu().items.size(), 12U);
}

TEST_F(AppDelegateMenuTest, TheIconIsASquareWithAStarCutOut) {
    const auto delegate = std::make_shared<AppDelegate>();
    const auto icon = delegate->createMenuBarIcon();
    EXPECT_EQ(icon.size, (Size{18, 18}));
    EXPECT_EQ(icon.filledPath.windingRule(), WindingRule::evenOdd);

    auto expected = BezierPath::roundedRect({1, 1}, {16, 16}, 3.5, 3.5);
    const auto squareElements = expected.elements().size();
    expected.append(delegate->createStarPath({9, 9}, 5.8, 2.5, 5));
    EXPECT_EQ(described(icon.filledPath), described(expected));
    const auto& first = icon.filledPath.elements().at(squareElements);
    EXPECT_NEAR(std::get<BezierPath::MoveTo>(first).point.x, 9, 1e-12);
    EXPECT_NEAR(std::get<BezierPath::MoveTo>(first).point.y, 14.8, 1e-12);
}

TEST_F(AppDelegateMenuTest, TheStarRunsAnticlockwiseFromTheTop) {
    const auto delegate = std::make_shared<AppDelegate>();
    const auto path = delegate->createStarPath({9, 9}, 5.8, 2.5, 5);
    ASSERT_EQ(path.elements().size(), 11U);
    EXPECT_TRUE(std::holds_alternative<BezierPath::Close>(path.elements().back()));
    for (std::size_t i = 0; i < 10; ++i) {
        const auto& element = path.elements()[i];
        const Point vertex = i == 0 ? std::get<BezierPath::MoveTo>(element).point
                                    : std::get<BezierPath::LineTo>(element).point;
        const double radius = i % 2 == 0 ? 5.8 : 2.5;
        const double degrees = 90.0 + 36.0 * static_cast<double>(i);
        const double angle = degrees * std::numbers::pi / 180;
        EXPECT_NEAR(vertex.x, 9 + radius * std::cos(angle), 1e-12) << i;
        EXPECT_NEAR(vertex.y, 9 + radius * std::sin(angle), 1e-12) << i;
    }
}

TEST_F(AppDelegateMenuTest, AStarOfNoPointsHasNoVertices) {
    const auto delegate = std::make_shared<AppDelegate>();
    const auto path = delegate->createStarPath({9, 9}, 5.8, 2.5, 0);
    ASSERT_EQ(path.elements().size(), 1U);
    EXPECT_TRUE(std::holds_alternative<BezierPath::Close>(path.elements().front()));
}

TEST_F(AppDelegateMenuTest, TheVersionAndTheCreditLineOpenTheProductPage) {
    launched();
    doubles::StatusItemRecord::choose(menu().items.at(0));
    doubles::StatusItemRecord::choose(menu().items.at(1));
    EXPECT_THAT(platform().workspace.openedURLs(),
                ElementsAre("https://product.example/", "https://product.example/"));
}

TEST_F(AppDelegateMenuTest, AProductPageAddressThatDoesNotParseOpensNothing) {
    platform().configuration.productPageAddress = "not a url";
    const auto delegate = launched();
    delegate->openWebsite();
    EXPECT_THAT(platform().workspace.openedURLs(), IsEmpty());
}

TEST_F(AppDelegateMenuTest, AddingAFolderAsksForOneFolder) {
    platform().bundle.texts = {{"panel.selectFolder", "Which one?"}};
    launched();
    platform().openPanel.choose("/a");
    doubles::StatusItemRecord::choose(itemTitled("menu.addFolder"));
    ASSERT_EQ(platform().openPanel.settings().size(), 1U);
    const auto& settings = platform().openPanel.settings().front();
    EXPECT_TRUE(settings.canChooseDirectories);
    EXPECT_FALSE(settings.canChooseFiles);
    EXPECT_FALSE(settings.allowsMultipleSelection);
    EXPECT_EQ(settings.message, "Which one?");
}

TEST_F(AppDelegateMenuTest, AnAddedFolderIsWatchedStoredShownAndThenLogged) {
    const auto delegate = launched();
    log().forget();
    platform().openPanel.choose("/home/kim/Links");
    doubles::StatusItemRecord::choose(itemTitled("menu.addFolder"));
    EXPECT_THAT(delegate->watchedFolders(), ElementsAre(desktop, downloads, "/home/kim/Links"));
    EXPECT_THAT(storedExtraFolders(), Optional(ElementsAre("/home/kim/Links")));
    EXPECT_EQ(itemTitled("  ~/Links").submenu.size(), 2U);
    EXPECT_THAT(
        log().messages(),
        ElementsAre(
            "Glintmark: ファイル監視停止", "Glintmark: 既存weblocファイル 0 件を記録",
            R"(Glintmark: 監視対象ディレクトリ: ["/home/kim/Desktop", "/home/kim/Downloads", "/home/kim/Links"])",
            "Glintmark: ファイル監視開始（バックグラウンドキュー）",
            "Glintmark: Folder added → /home/kim/Links"));
}

TEST_F(AppDelegateMenuTest, AFolderThatDiffersByATrailingSlashIsNew) {
    const auto delegate = launched();
    addFolder("/home/kim/Desktop/");
    EXPECT_THAT(delegate->watchedFolders(), ElementsAre(desktop, downloads, "/home/kim/Desktop/"));
}

TEST_F(AppDelegateMenuTest, CancellingChoosingNothingOrAListedFolderChangesNothing) {
    const auto delegate = launched();
    log().forget();
    platform().openPanel.answer({platform::ModalResponse::cancel, "/a"});
    platform().openPanel.answer({platform::ModalResponse::ok, std::nullopt});
    platform().openPanel.choose(desktop);
    for (int i = 0; i < 3; ++i) {
        delegate->addFolder();
    }
    queues().runPending();
    EXPECT_EQ(platform().openPanel.settings().size(), 3U);
    EXPECT_THAT(delegate->watchedFolders(), ElementsAre(desktop, downloads));
    EXPECT_EQ(defaults().writes(), 0);
    EXPECT_EQ(statusItem().menus.size(), 2U);
    EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(AppDelegateMenuTest, RemovingTheThirdFolderRemovesExactlyThat) {
    storeExtraFolders({"/home/kim/Links", "/b"});
    const auto delegate = launched();
    log().forget();
    doubles::StatusItemRecord::choose(itemTitled("  ~/Links").submenu.at(0));
    EXPECT_THAT(delegate->watchedFolders(), ElementsAre(desktop, downloads, "/b"));
    EXPECT_THAT(storedExtraFolders(), Optional(ElementsAre("/b")));
    EXPECT_EQ(described(itemTitled("  /b")),
              "  /b > menu.removeFolder ! #2 > menu.revealInFinder ! #2");
    EXPECT_THAT(
        log().messages(),
        ElementsAre(
            "Glintmark: Folder removed → /home/kim/Links", "Glintmark: ファイル監視停止",
            "Glintmark: 既存weblocファイル 0 件を記録",
            R"(Glintmark: 監視対象ディレクトリ: ["/home/kim/Desktop", "/home/kim/Downloads", "/b"])",
            "Glintmark: ファイル監視開始（バックグラウンドキュー）"));
}

TEST_F(AppDelegateMenuTest, TheRevealCommandOpensTheFolderAndIgnoresAFailure) {
    storeExtraFolders({"/a", "/b"});
    launched();
    platform().workspace.refuse();
    log().forget();
    doubles::StatusItemRecord::choose(itemTitled("  /b").submenu.at(1));
    EXPECT_THAT(platform().workspace.fileViewers(), ElementsAre("/b"));
    EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(AppDelegateMenuTest, TagsOutOfRangeAreIgnored) {
    storeExtraFolders({"/a"});
    const auto delegate = launched();
    log().forget();
    for (const long tag :
         {std::numeric_limits<long>::min(), -1L, 0L, 1L, 3L, std::numeric_limits<long>::max()}) {
        MenuItem sender;
        sender.tag = tag;
        delegate->removeFolder(sender);
        delegate->revealFolder(sender);
    }
    EXPECT_EQ(delegate->watchedFolders().size(), 3U);
    EXPECT_THAT(platform().workspace.fileViewers(), IsEmpty());
    EXPECT_EQ(defaults().writes(), 0);
    EXPECT_THAT(log().lines(), IsEmpty());
}

TEST_F(AppDelegateMenuTest, QuitStopsTheWatcherTerminatesAndSavesNothing) {
    launched();
    log().forget();
    doubles::StatusItemRecord::choose(itemTitled("menu.quit"));
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: ファイル監視停止"));
    EXPECT_EQ(platform().application.terminations(), 1);
    EXPECT_EQ(defaults().writes(), 0);
}

TEST_F(AppDelegateMenuTest, QuitWithoutAWatcherTerminates) {
    std::make_shared<AppDelegate>()->quit();
    EXPECT_EQ(platform().application.terminations(), 1);
}

TEST_F(AppDelegateMenuTest, AMenuThatOutlivesTheDelegateDoesNothing) {
    auto delegate = std::make_shared<AppDelegate>();
    delegate->applicationDidFinishLaunching();
    queues().runPending();
    delegate->modifyWatchedFolders().emplace_back("/a");
    delegate->rebuildMenu();
    const auto kept = menu();
    delegate.reset();
    EXPECT_TRUE(statusItem().isDestroyed);
    doubles::StatusItemRecord::choose(kept.items.back());
    doubles::StatusItemRecord::choose(kept.items.at(8).submenu.at(1));
    EXPECT_EQ(platform().application.terminations(), 0);
    EXPECT_THAT(platform().workspace.fileViewers(), IsEmpty());
}

class DelegateWithoutItem : public AppDelegate {
public:
    void setStatusItem(std::unique_ptr<platform::StatusItem> /*item*/) override {}
};

using AppDelegateMenuDeathTest = AppDelegateMenuTest;

TEST_F(AppDelegateMenuDeathTest, AMissingStatusItemEndsTheProcess) {
    const auto delegate = std::make_shared<DelegateWithoutItem>();
    const char* message = "Unexpectedly found nil while implicitly unwrapping an Optional value";
    EXPECT_DEATH(delegate->setupStatusItem(), message);
    EXPECT_DEATH(delegate->rebuildMenu(), message);
}

TEST_F(AppDelegateMenuDeathTest, ANegativeNumberOfPointsEndsTheProcess) {
    const auto delegate = std::make_shared<AppDelegate>();
    EXPECT_DEATH(delegate->createStarPath({9, 9}, 5.8, 2.5, -1),
                 "Range requires lowerBound <= upperBound");
}

TEST_F(AppDelegateMenuDeathTest, AnOverflowingNumberOfPointsEndsTheProcess) {
    const auto delegate = std::make_shared<AppDelegate>();
    for (const auto points :
         {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
        EXPECT_DEATH(delegate->createStarPath({9, 9}, 5.8, 2.5, points), "Arithmetic overflow");
    }
}

}  // namespace
}  // namespace glintmark
