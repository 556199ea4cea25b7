#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "linux/bus/SessionBus.h"
#include "linux/statusitem/DBusMenu.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::FieldsAre;
using testing::HasSubstr;
using testing::Not;

constexpr auto invalidArguments = "org.freedesktop.DBus.Error.InvalidArgs";

class DBusMenuTest : public testing::Test {
protected:
    DBusMenuTest() { menu_.offer(bus_.connection()); }

    MenuItem item(std::string title) {
        MenuItem item;
        item.title = std::move(title);
        item.action = [this](const MenuItem& clicked) { clicked_.push_back(clicked.title); };
        return item;
    }

    /// Entries 1 to 6. 4 and 5 are in the submenu of 3.
    Menu example() {
        Menu menu;
        menu.addItem(item("Version"));
        menu.addItem(MenuItem::separatorItem());
        MenuItem folder;
        folder.title = "  ~/my_links";
        folder.submenu = {item("Remove"), item("Show")};
        menu.addItem(folder);
        MenuItem quit = item("Quit");
        quit.keyEquivalent = "q";
        menu.addItem(quit);
        return menu;
    }

    PeerReply call(const std::string& method, const std::string& arguments) {
        return panel_.call(g_dbus_connection_get_unique_name(bus_.connection()), DBusMenu::path,
                           "com.canonical.dbusmenu", method, arguments);
    }

    PrivateBus daemon_;
    SessionBus bus_;
    FakePeer panel_{daemon_};
    DBusMenu menu_;
    std::vector<std::string> clicked_;
};

TEST_F(DBusMenuTest, AnEmptyMenuIsARootWithoutChildren) {
    EXPECT_EQ(call("GetLayout", "(0, -1, @as [])").part(1), "(0, {}, [])");
}

TEST_F(DBusMenuTest, TheLayoutGivesEachEntrysProperties) {
    menu_.setMenu(example());
    EXPECT_EQ(call("GetLayout", "(0, -1, @as [])").part(1),
              "(0, {'children-display': <'submenu'>}, ["
              "<(1, {'label': <'Version'>}, @av [])>, "
              "<(2, {'type': <'separator'>}, @av [])>, "
              "<(3, {'label': <'  ~/my__links'>, 'children-display': <'submenu'>}, ["
              "<(4, {'label': <'Remove'>}, @av [])>, <(5, {'label': <'Show'>}, @av [])>])>, "
              "<(6, {'label': <'Quit'>, 'shortcut': <[['Control', 'q']]>}, @av [])>])");
}

TEST_F(DBusMenuTest, AnEntryThatCannotBeClickedIsGreyed) {
    Menu menu;
    MenuItem withoutAction;
    withoutAction.title = "Caption";
    menu.addItem(withoutAction);
    MenuItem disabled = item("Disabled");
    disabled.enabled = false;
    menu.addItem(disabled);
    menu_.setMenu(menu);
    EXPECT_EQ(call("GetProperty", "(1, 'enabled')").part(0), "<false>");
    EXPECT_EQ(call("GetProperty", "(2, 'enabled')").part(0), "<false>");

    EXPECT_EQ(call("Event", "(2, 'clicked', <0>, uint32 0)").errorName, "");
    runPending();
    EXPECT_THAT(clicked_, ElementsAre());
}

TEST_F(DBusMenuTest, TheDepthLimitsTheLayout) {
    menu_.setMenu(example());
    EXPECT_EQ(call("GetLayout", "(3, 0, ['label'])").part(1),
              "(3, {'label': <'  ~/my__links'>}, [])");
    const auto one = call("GetLayout", "(0, 1, @as [])").part(1);
    EXPECT_THAT(one, HasSubstr("my__links"));
    EXPECT_THAT(one, Not(HasSubstr("Remove")));
    EXPECT_THAT(call("GetLayout", "(0, 2147483647, @as [])").part(1), HasSubstr("Remove"));
    EXPECT_THAT(call("GetLayout", "(0, -2147483648, @as [])").part(1), HasSubstr("Remove"));
}

TEST_F(DBusMenuTest, ANameThatIsNotUTF8IsStillShown) {
    Menu menu;
    menu.addItem(
        item("a\xff"
             "b"));
    menu_.setMenu(menu);
    EXPECT_EQ(call("GetProperty", "(1, 'label')").part(0),
              "<'a\xef\xbf\xbd"
              "b'>");
}

TEST_F(DBusMenuTest, GroupPropertiesAreThoseOfTheRequestedEntriesAndNames) {
    menu_.setMenu(example());
    EXPECT_EQ(call("GetGroupProperties", "([1, 99, 6], ['label'])").part(0),
              "[(1, {'label': <'Version'>}), (6, {'label': <'Quit'>})]");
    EXPECT_THAT(call("GetGroupProperties", "(@ai [], @as [])").part(0), HasSubstr("(5, {"));
}

TEST_F(DBusMenuTest, AnUnsetPropertyHasItsDefault) {
    menu_.setMenu(example());
    EXPECT_EQ(call("GetProperty", "(1, 'type')").part(0), "<'standard'>");
    EXPECT_EQ(call("GetProperty", "(2, 'label')").part(0), "<''>");
    EXPECT_EQ(call("GetProperty", "(1, 'enabled')").part(0), "<true>");
    EXPECT_EQ(call("GetProperty", "(1, 'visible')").part(0), "<true>");
    EXPECT_EQ(call("GetProperty", "(1, 'shortcut')").part(0), "<@aas []>");
    EXPECT_EQ(call("GetProperty", "(1, 'children-display')").part(0), "<''>");
}

TEST_F(DBusMenuTest, TheMenuDescribesItself) {
    const auto property = [this](const char* name) {
        return panel_.property(g_dbus_connection_get_unique_name(bus_.connection()), DBusMenu::path,
                               "com.canonical.dbusmenu", name);
    };
    EXPECT_EQ(property("Version"), "3");
    EXPECT_EQ(property("TextDirection"), "'ltr'");
    EXPECT_EQ(property("Status"), "'normal'");
    EXPECT_EQ(property("IconThemePath"), "[]");
}

TEST_F(DBusMenuTest, AClickRunsTheActionAfterTheAnswer) {
    menu_.setMenu(example());
    EXPECT_EQ(call("Event", "(4, 'clicked', <''>, uint32 7)").errorName, "");
    ASSERT_TRUE(waitUntil([&] { return !clicked_.empty(); }));
    EXPECT_THAT(clicked_, ElementsAre("Remove"));
}

TEST_F(DBusMenuTest, OtherEventsRunNothing) {
    menu_.setMenu(example());
    for (const auto* event : {"opened", "hovered", "closed", ""}) {
        EXPECT_EQ(call("Event", "(1, '" + std::string(event) + "', <0>, uint32 0)").errorName, "");
    }
    EXPECT_EQ(call("Event", "(0, 'clicked', <0>, uint32 0)").errorName, "");
    runPending();
    EXPECT_THAT(clicked_, ElementsAre());
}

TEST_F(DBusMenuTest, TheAnswerToAGroupOfEventsListsTheUnknownEntries) {
    menu_.setMenu(example());
    const auto reply =
        call("EventGroup",
             "([(1, 'clicked', <0>, uint32 0), (77, 'clicked', <0>, 0), (6, 'clicked', <0>, 0)],)");
    EXPECT_EQ(reply.part(0), "[77]");
    ASSERT_TRUE(waitUntil([&] { return clicked_.size() == 2; }));
    EXPECT_THAT(clicked_, ElementsAre("Version", "Quit"));

    EXPECT_EQ(call("EventGroup", "([(77, 'clicked', <0>, uint32 0)],)").errorName,
              invalidArguments);
    EXPECT_EQ(call("EventGroup", "(@a(isvu) [],)").part(0), "[]");
}

TEST_F(DBusMenuTest, ClicksOfOneGroupOnOneEntryCountOnce) {
    menu_.setMenu(example());
    std::string events = "(1, 'hovered', <0>, uint32 0)";
    for (int i = 0; i < 300; ++i) {
        events += ", (1, 'clicked', <0>, 0), (1, 'hovered', <0>, 0), (6, 'clicked', <0>, 0)";
    }
    EXPECT_EQ(call("EventGroup", ("([" + events + "],)").c_str()).part(0), "[]");
    ASSERT_TRUE(waitUntil([&] { return clicked_.size() >= 2; }));
    runPending();
    EXPECT_THAT(clicked_, ElementsAre("Version", "Quit"));
    call("EventGroup", "([(1, 'clicked', <0>, uint32 0)],)");
    call("Event", "(1, 'clicked', <0>, uint32 0)");
    ASSERT_TRUE(waitUntil([&] { return clicked_.size() >= 4; }));
}

TEST_F(DBusMenuTest, NothingNeedsUpdatingBeforeItShows) {
    menu_.setMenu(example());
    EXPECT_EQ(call("AboutToShow", "(0,)").part(0), "false");
    EXPECT_EQ(call("AboutToShow", "(99,)").errorName, invalidArguments);
    const auto group = call("AboutToShowGroup", "([0, 3, 99],)");
    EXPECT_EQ(group.part(0), "[]");
    EXPECT_EQ(group.part(1), "[99]");
    EXPECT_EQ(call("AboutToShowGroup", "([99],)").errorName, invalidArguments);
}

TEST_F(DBusMenuTest, EachNewMenuIsOneNewRevision) {
    panel_.listen("com.canonical.dbusmenu");
    menu_.setMenu(example());
    menu_.setMenu(example());
    const auto& signals = panel_.signals();
    ASSERT_TRUE(waitUntil([&] { return signals.size() >= 2; }));
    EXPECT_EQ(call("GetLayout", "(0, 0, @as [])").part(0), "3");
    EXPECT_THAT(signals, ElementsAre(FieldsAre("LayoutUpdated", "(2, 0)"),
                                     FieldsAre("LayoutUpdated", "(3, 0)")));
}

TEST_F(DBusMenuTest, AnEntryOfAnEarlierLayoutCannotBeClicked) {
    menu_.setMenu(example());
    menu_.setMenu(example());
    EXPECT_EQ(call("Event", "(1, 'clicked', <0>, uint32 0)").errorName, invalidArguments);
    EXPECT_EQ(call("Event", "(7, 'clicked', <0>, uint32 0)").errorName, "");
    ASSERT_TRUE(waitUntil([&] { return !clicked_.empty(); }));
    EXPECT_THAT(clicked_, ElementsAre("Version"));
}

TEST_F(DBusMenuTest, AClickIsDroppedIfTheMenuChangesBeforeItsActionRuns) {
    Menu menu;
    MenuItem replacing;
    replacing.title = "Replace";
    replacing.action = [this](const MenuItem& self) {
        menu_.setMenu({});
        clicked_.push_back(self.title);
    };
    menu.addItem(replacing);
    menu.addItem(item("Late"));
    menu_.setMenu(menu);
    call("EventGroup", "([(1, 'clicked', <0>, uint32 0), (2, 'clicked', <0>, 0)],)");
    ASSERT_TRUE(waitUntil([&] { return !clicked_.empty(); }));
    runPending();
    EXPECT_THAT(clicked_, ElementsAre("Replace"));
}

TEST_F(DBusMenuTest, BadCallsAreAnsweredWithErrors) {
    menu_.setMenu(example());
    EXPECT_EQ(call("GetLayout", "(99, -1, @as [])").errorName, invalidArguments);
    EXPECT_EQ(call("GetLayout", "(-1, -1, @as [])").errorName, invalidArguments);
    EXPECT_EQ(call("GetLayout", "('a', 'b')").errorName, invalidArguments);
    EXPECT_EQ(call("GetProperty", "(99, 'label')").errorName, invalidArguments);
    EXPECT_EQ(call("GetProperty", "(1, 'no-such')").errorName, invalidArguments);
    EXPECT_EQ(call("Event", "(99, 'clicked', <0>, uint32 0)").errorName, invalidArguments);
    EXPECT_EQ(call("NoSuchMethod", "()").errorName, "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(call("GetLayout", "(0, -1, @as [])").errorName, "");
}

TEST_F(DBusMenuTest, AMenuThatIsNoLongerExportedIsGone) {
    menu_.setMenu(example());
    menu_.offer(nullptr);
    EXPECT_EQ(call("GetLayout", "(0, -1, @as [])").errorName,
              "org.freedesktop.DBus.Error.UnknownMethod");
    menu_.setMenu(example());  // while it is not exported
    menu_.offer(bus_.connection());
    EXPECT_EQ(call("GetLayout", "(0, 0, @as [])").part(0), "3");
}

MenuItem folderItem(const std::string& folder) {
    MenuItem item;
    item.title = "a";
    item.folder = folder;
    return item;
}

TEST_F(DBusMenuTest, AFolderThatIsMissingHasAWarningSignWhichFollowsTheFolder) {
    const test::TemporaryDirectory home;
    home.createDirectories("there");
    Menu menu;
    menu.addItem(folderItem(home / "there"));
    menu.addItem(folderItem(home / "missing"));
    menu.addItem(item("Quit"));
    panel_.listen("com.canonical.dbusmenu");
    menu_.setMenu(menu);
    const auto icon = [&](int id) {
        return call("GetProperty", "(" + std::to_string(id) + ", 'icon-name')").part(0);
    };
    ASSERT_TRUE(waitUntil([&] { return icon(2) == "<'dialog-warning'>"; }));
    EXPECT_EQ(icon(1), "<''>");
    EXPECT_EQ(icon(3), "<''>");
    EXPECT_THAT(panel_.signals(),
                ElementsAre(FieldsAre("LayoutUpdated", testing::_),
                            FieldsAre("ItemsPropertiesUpdated",
                                      "([(2, {'icon-name': <'dialog-warning'>})], [])")));
    EXPECT_EQ(call("GetLayout", "(2, 0, @as [])").part(1),
              "(2, {'label': <'a'>, 'enabled': <false>, 'icon-name': <'dialog-warning'>}, [])");

    home.createDirectories("missing");
    home.remove("there");
    EXPECT_EQ(call("AboutToShow", "(0,)").part(0), "false");
    ASSERT_TRUE(waitUntil([&] { return panel_.signals().size() == 4; }));
    EXPECT_THAT(
        panel_.signals(),
        testing::IsSupersetOf(
            {FieldsAre("ItemsPropertiesUpdated", "([(1, {'icon-name': <'dialog-warning'>})], [])"),
             FieldsAre("ItemsPropertiesUpdated", "([], [(2, ['icon-name'])])")}));

    menu_.setMenu(menu);  // numbers 4 to 6: what is known is shown at once
    EXPECT_EQ(icon(4), "<'dialog-warning'>");
    EXPECT_EQ(icon(5), "<''>");
}

TEST_F(DBusMenuTest, EachAnnouncementOfAnOpeningChecksTheFolders) {
    std::atomic<int> looks = 0;
    DBusMenu menu([&](const std::string&) {
        ++looks;
        return true;
    });
    menu_.offer(nullptr);
    menu.offer(bus_.connection());
    Menu content;
    content.addItem(folderItem("/a"));
    menu.setMenu(content);
    EXPECT_TRUE(waitUntil([&] { return looks == 1; }));
    const std::vector<std::pair<const char*, const char*>> openings{
        {"AboutToShow", "(0,)"},
        {"AboutToShowGroup", "([0],)"},
        {"Event", "(0, 'opened', <''>, uint32 0)"},
        {"EventGroup", "([(0, 'opened', <''>, uint32 0)],)"}};
    for (const auto& opening : openings) {
        const auto* method = opening.first;
        const auto* arguments = opening.second;
        const int before = looks;
        const auto shown = menu.timesShown();
        EXPECT_EQ(call(method, arguments).errorName, "") << method;
        EXPECT_EQ(menu.timesShown(), shown + 1) << method;
        // The thread before may not have given its result yet, and then there is no new one.
        EXPECT_TRUE(waitUntil([&] {
            call(method, arguments);
            return looks > before;
        })) << method;
    }
    const auto shown = menu.timesShown();
    EXPECT_EQ(call("AboutToShow", "(1,)").errorName, "");
    EXPECT_EQ(call("GetLayout", "(0, -1, @as [])").errorName, "");
    EXPECT_EQ(menu.timesShown(), shown);
}

}  // namespace
}  // namespace glintmark::platform
