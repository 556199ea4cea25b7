#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "linux/bus/SessionBus.h"
#include "linux/statusitem/StatusNotifierItem.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::FieldsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr auto watcherName = "org.kde.StatusNotifierWatcher";
constexpr auto itemInterface = "org.kde.StatusNotifierItem";
constexpr auto watcherXml = R"xml(<node>
  <interface name="org.kde.StatusNotifierWatcher">
    <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
    <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
    <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
    <signal name="StatusNotifierHostRegistered"/>
  </interface>
</node>)xml";

constexpr auto watcherWithoutListXml = R"xml(<node>
  <interface name="org.kde.StatusNotifierWatcher">
    <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
    <signal name="StatusNotifierHostRegistered"/>
  </interface>
</node>)xml";

/// A panel that lists the items that register, unless a test sets another answer.
class FakePanel {
public:
    enum class Answer { accept, refuse, none };

    explicit FakePanel(const PrivateBus& bus) : peer_(bus) {
        peer_.offer(
            "/StatusNotifierWatcher", watcherXml,
            [this](const std::string&, GVariant* arguments, GDBusMethodInvocation* invocation) {
                ++calls;
                const char* service = nullptr;
                g_variant_get(arguments, "(&s)", &service);
                services.emplace_back(service);
                if (answer == Answer::refuse) {
                    refuse(invocation, "not now");
                } else if (answer == Answer::accept) {
                    items.emplace_back(g_dbus_method_invocation_get_sender(invocation));
                    g_dbus_method_invocation_return_value(invocation, nullptr);
                } else {
                    pending_.reset(invocation);
                }
            },
            [this](const std::string& name) {
                if (name == "IsStatusNotifierHostRegistered") {
                    return g_variant_new_boolean(hasHost ? TRUE : FALSE);
                }
                ++reads;
                std::vector<const char*> names;
                for (const auto& item : items) {
                    names.push_back(item.c_str());
                }
                return g_variant_new_strv(names.data(), static_cast<gssize>(names.size()));
            });
        peer_.ownName(watcherName);
    }

    void restartHost() { peer_.emit("StatusNotifierHostRegistered", nullptr); }

    std::string property(const std::string& name) const { return property(items.back(), name); }
    std::string property(const std::string& item, const std::string& name) const {
        return peer_.property(item, StatusNotifierItem::path, itemInterface, name);
    }

    FakePeer& peer() { return peer_; }

    Answer answer = Answer::accept;
    int calls = 0;
    int reads = 0;                      ///< How often the list of items was read.
    std::vector<std::string> items;     ///< Unique names of the programs.
    std::vector<std::string> services;  ///< What they registered.
    bool hasHost = true;

private:
    FakePeer peer_;
    GObjectHandle<GDBusMethodInvocation> pending_;
};

TemplateImage square() { return {{18, 18}, BezierPath::roundedRect({1, 1}, {16, 16}, 3, 3)}; }

class StatusNotifierItemTest : public testing::Test {
protected:
    ~StatusNotifierItemTest() override { panel_.reset(); }

    void makeItem() {
        item_ = std::make_unique<StatusNotifierItem>(*bus_, daemon_.folder() + "/icons");
        item_->button()->setImage(square());
    }
    FakePanel& startPanel() {
        panel_ = std::make_unique<FakePanel>(daemon_);
        return *panel_;
    }
    bool registered() {
        return waitUntil([&] { return panel_ != nullptr && !panel_->items.empty(); });
    }

    PrivateBus daemon_;
    std::unique_ptr<SessionBus> bus_ = std::make_unique<SessionBus>();
    std::unique_ptr<FakePanel> panel_;
    std::unique_ptr<StatusNotifierItem> item_;
};

TEST_F(StatusNotifierItemTest, RegistersWithARunningPanel) {
    startPanel();
    makeItem();
    ASSERT_TRUE(registered());
    EXPECT_THAT(panel_->items, ElementsAre(g_dbus_connection_get_unique_name(bus_->connection())));
    // Cinnamon opens the menu of items below this path.
    EXPECT_THAT(panel_->services, ElementsAre(StartsWith("/org/ayatana/NotificationItem/")));
}

TEST_F(StatusNotifierItemTest, DescribesItself) {
    startPanel();
    makeItem();
    ASSERT_TRUE(registered());
    const std::vector<std::pair<std::string, std::string>> expected{
        {"Category", "'ApplicationStatus'"},
        {"Id", "'glintmark'"},
        {"Title", "'Glintmark'"},
        {"Status", "'Active'"},
        {"WindowId", "0"},
        {"IconName", "'glintmark-symbolic'"},
        {"IconThemePath", "'" + daemon_.folder() + "/icons'"},
        {"OverlayIconName", "''"},
        {"OverlayIconPixmap", "[]"},
        {"AttentionIconName", "''"},
        {"AttentionIconPixmap", "[]"},
        {"AttentionMovieName", "''"},
        {"ToolTip", "('', [], 'Glintmark', '')"},
        {"ItemIsMenu", "true"},
        {"Menu", "'/MenuBar'"}};
    for (const auto& [name, value] : expected) {
        EXPECT_EQ(panel_->property(name), value) << name;
    }
    EXPECT_TRUE(g_file_test(
        (daemon_.folder() + "/icons/hicolor/scalable/apps/glintmark-symbolic.svg").c_str(),
        G_FILE_TEST_EXISTS));
}

TEST_F(StatusNotifierItemTest, AnInstalledIconIsNamedWithoutAFolder) {
    startPanel();
    item_ = std::make_unique<StatusNotifierItem>(*bus_, std::nullopt);
    item_->button()->setImage(square());
    ASSERT_TRUE(registered());
    EXPECT_EQ(panel_->property("IconName"), "'glintmark-symbolic'");
    EXPECT_EQ(panel_->property("IconThemePath"), "''");
    EXPECT_THAT(panel_->property("IconPixmap"), StartsWith("[(18, 18, ["));
}

TEST_F(StatusNotifierItemTest, CinnamonsWatcherGetsThePixmapsOfAnIconThatIsNotInstalled) {
    startPanel();
    panel_->peer().ownName("org.x.StatusNotifierWatcher");
    makeItem();
    ASSERT_TRUE(registered());
    EXPECT_EQ(panel_->property("IconName"), "''");
    EXPECT_THAT(panel_->property("IconPixmap"), StartsWith("[(18, 18, ["));

    panel_->peer().die();  // another panel in its place reads the file
    startPanel();
    ASSERT_TRUE(registered());
    EXPECT_EQ(panel_->property("IconName"), "'glintmark-symbolic'");
}

TEST_F(StatusNotifierItemTest, AnotherProgramWithCinnamonsNameChangesNothing) {
    startPanel();
    FakePeer other(daemon_);
    other.ownName("org.x.StatusNotifierWatcher");
    makeItem();
    ASSERT_TRUE(registered());
    EXPECT_EQ(panel_->property("IconName"), "'glintmark-symbolic'");
}

TEST_F(StatusNotifierItemTest, AnActivationIsReportedIfThePanelThenOpensNoMenu) {
    startPanel();
    makeItem();
    int activations = 0;
    item_->setActivationHandler([&] { ++activations; });
    ASSERT_TRUE(registered());
    const auto call = [&](const char* path, const char* interface, const char* method,
                          const char* arguments) {
        return panel_->peer().call(panel_->items.back(), path, interface, method, arguments);
    };
    const auto activate = [&] {
        call(StatusNotifierItem::path, itemInterface, "Activate", "(1, 2)");
    };
    activate();
    activate();  // a double click
    ASSERT_TRUE(waitUntil([&] { return activations > 0; }));
    EXPECT_EQ(activations, 1);

    const auto showsMenu = [&](const char* method, const char* arguments) {
        activations = 0;
        activate();
        call("/MenuBar", "com.canonical.dbusmenu", method, arguments);
        bool isOver = false;  // by a timer that was set after the item's
        g_timeout_add(
            StatusNotifierItem::menuPatience.count(),
            [](gpointer flag) -> gboolean {
                *static_cast<bool*>(flag) = true;
                return G_SOURCE_REMOVE;
            },
            &isOver);
        EXPECT_TRUE(waitUntil([&] { return isOver; }));
        return activations == 0;
    };
    EXPECT_TRUE(showsMenu("AboutToShow", "(0,)"));
    EXPECT_TRUE(showsMenu("Event", "(0, 'opened', <''>, uint32 0)"));
    EXPECT_FALSE(showsMenu("GetLayout", "(0, -1, @as [])"));  // panels read it at any time
}

TEST_F(StatusNotifierItemTest, TheBarKnowsWhetherAPanelShowsTheItem) {
    const StatusNotifierBar bar(*bus_);
    const auto isShown = [&] {
        std::optional<bool> result;
        bar.askIfShown([&](bool answer) { result = answer; });
        EXPECT_TRUE(waitUntil([&] { return result.has_value(); }));
        return result.value_or(false);
    };
    EXPECT_FALSE(isShown());  // no watcher
    startPanel();
    EXPECT_FALSE(isShown());  // not registered
    makeItem();
    ASSERT_TRUE(registered());
    EXPECT_TRUE(isShown());
    panel_->hasHost = false;
    EXPECT_FALSE(isShown());
    daemon_.stop(*bus_);
    EXPECT_FALSE(isShown());
}

TEST_F(StatusNotifierItemTest, PublishesItsImageInEverySize) {
    startPanel();
    makeItem();
    ASSERT_TRUE(registered());
    const auto reply = panel_->peer().call(panel_->items.back(), StatusNotifierItem::path,
                                           "org.freedesktop.DBus.Properties", "Get",
                                           "('" + std::string(itemInterface) + "', 'IconPixmap')");
    GVariantIter* images = nullptr;
    GVariant* value = nullptr;
    g_variant_get(reply.value.get(), "(v)", &value);
    const GVariantHandle owner(value);
    g_variant_get(value, "a(iiay)", &images);
    std::vector<int> sizes;
    int width = 0;
    int height = 0;
    GVariant* bytes = nullptr;
    while (g_variant_iter_next(images, "(ii@ay)", &width, &height, &bytes) != FALSE) {
        const GVariantHandle bytesOwner(bytes);
        EXPECT_EQ(width, height);
        EXPECT_EQ(g_variant_get_size(bytes), static_cast<gsize>(width * height * 4));
        sizes.push_back(width);
    }
    g_variant_iter_free(images);
    EXPECT_THAT(sizes, ElementsAre(18, 22, 24, 32, 36, 48, 64));
}

TEST_F(StatusNotifierItemTest, RefusesActivationsSoThatPanelsOpenTheMenu) {
    startPanel();
    makeItem();
    ASSERT_TRUE(registered());
    const auto call = [&](const char* method, const char* arguments) {
        return panel_->peer()
            .call(panel_->items.back(), StatusNotifierItem::path, itemInterface, method, arguments)
            .errorName;
    };
    EXPECT_EQ(call("Activate", "(1, 2)"), "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(call("SecondaryActivate", "(1, 2)"), "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(call("ContextMenu", "(1, 2)"), "");
    EXPECT_EQ(call("Scroll", "(1, 'vertical')"), "");
    EXPECT_EQ(call("Activate", "('x',)"), "org.freedesktop.DBus.Error.InvalidArgs");
}

TEST_F(StatusNotifierItemTest, ServesItsMenu) {
    startPanel();
    makeItem();
    Menu menu;
    menu.addItem(MenuItem::separatorItem());
    item_->setMenu(menu);
    ASSERT_TRUE(registered());
    EXPECT_THAT(panel_->peer()
                    .call(panel_->items.back(), "/MenuBar", "com.canonical.dbusmenu", "GetLayout",
                          "(0, -1, @as [])")
                    .part(1),
                HasSubstr("separator"));
}

TEST_F(StatusNotifierItemTest, APanelThatStartsLaterGetsTheItem) {
    makeItem();
    runPending();
    startPanel();
    EXPECT_TRUE(registered());
}

TEST_F(StatusNotifierItemTest, APanelThatDiesAndRestartsGetsTheItemAgain) {
    startPanel();
    makeItem();
    ASSERT_TRUE(registered());
    panel_->peer().die();
    startPanel();
    EXPECT_TRUE(registered());
}

TEST_F(StatusNotifierItemTest, RegistersAgainAfterARefusal) {
    startPanel().answer = FakePanel::Answer::refuse;
    makeItem();
    ASSERT_TRUE(waitUntil([&] { return panel_->calls == 1; }));
    panel_->answer = FakePanel::Answer::accept;
    EXPECT_TRUE(registered());
    EXPECT_EQ(panel_->calls, 2);
}

TEST_F(StatusNotifierItemTest, DoesNotRetryWithAPanelThatDiedBeforeItAnswered) {
    startPanel().answer = FakePanel::Answer::none;
    makeItem();
    ASSERT_TRUE(waitUntil([&] { return panel_->calls == 1; }));
    panel_->peer().die();
    startPanel();
    ASSERT_TRUE(registered());
    EXPECT_EQ(panel_->calls, 1);
}

TEST_F(StatusNotifierItemTest, RegistersAgainForARestartedHostOnlyIfTheItemWasDropped) {
    startPanel();
    makeItem();
    ASSERT_TRUE(registered());
    const std::string name = panel_->items.back();
    for (const auto& listed : {name, name + "/StatusNotifierItem", name + "@/StatusNotifierItem"}) {
        panel_->items = {":9.99", listed};
        const int reads = panel_->reads;
        panel_->restartHost();
        ASSERT_TRUE(waitUntil([&] { return panel_->reads > reads; }));
    }
    EXPECT_EQ(panel_->property(name, "Id"),
              "'glintmark'");  // when it answers, it has read the lists
    EXPECT_EQ(panel_->calls, 1);

    panel_->items.clear();
    panel_->restartHost();
    EXPECT_TRUE(registered());
    EXPECT_EQ(panel_->calls, 2);
}

TEST_F(StatusNotifierItemTest, RegistersAgainForARestartedHostIfTheWatcherHasNoList) {
    startPanel();
    makeItem();
    ASSERT_TRUE(registered());
    panel_->peer().withdraw();
    int calls = 0;
    panel_->peer().offer("/StatusNotifierWatcher", watcherWithoutListXml,
                         [&](const std::string&, GVariant*, GDBusMethodInvocation* invocation) {
                             ++calls;
                             g_dbus_method_invocation_return_value(invocation, nullptr);
                         });
    panel_->restartHost();
    EXPECT_TRUE(waitUntil([&] { return calls == 1; }));
}

TEST_F(StatusNotifierItemTest, RegistersAgainWhenTheBusIsBack) {
    makeItem();
    daemon_.stop(*bus_);
    daemon_.start();
    startPanel();
    ASSERT_TRUE(registered());
    EXPECT_EQ(panel_->property("Id"), "'glintmark'");
}

TEST_F(StatusNotifierItemTest, RegistersWhenABusAppears) {
    daemon_.stop(*bus_);
    makeItem();
    item_->setMenu({});
    daemon_.start();
    startPanel();
    EXPECT_TRUE(registered());
}

TEST_F(StatusNotifierItemTest, ANewImageIsSignalled) {
    startPanel();
    makeItem();
    ASSERT_TRUE(registered());
    panel_->peer().listen(itemInterface);
    item_->button()->setImage(square());
    const auto& signals = panel_->peer().signals();
    EXPECT_TRUE(waitUntil([&] { return signals.size() == 2; }));
    EXPECT_THAT(signals, ElementsAre(FieldsAre("NewIconThemePath", HasSubstr("/icons")),
                                     FieldsAre("NewIcon", "()")));
}

TEST_F(StatusNotifierItemTest, AnItemWithoutAnIconFileNamesNone) {
    startPanel();
    item_ = std::make_unique<StatusNotifierItem>(*bus_, "/dev/null/icons");
    ASSERT_TRUE(registered());
    EXPECT_EQ(panel_->property("IconPixmap"), "[]");
    item_->button()->setImage(square());
    EXPECT_EQ(panel_->property("IconName"), "''");
    EXPECT_EQ(panel_->property("IconThemePath"), "''");
    EXPECT_THAT(panel_->property("IconPixmap"), StartsWith("[(18, 18, ["));
}

TEST_F(StatusNotifierItemTest, ADestroyedItemLeavesTheBus) {
    startPanel();
    makeItem();
    ASSERT_TRUE(registered());
    item_.reset();
    EXPECT_EQ(panel_->property("Id"), "");
    EXPECT_FALSE(g_file_test((daemon_.folder() + "/icons").c_str(), G_FILE_TEST_EXISTS));
}

TEST_F(StatusNotifierItemTest, TheBarMakesItemsThatRegister) {
    startPanel();
    StatusNotifierBar bar(*bus_);
    const auto item = bar.statusItem(squareStatusItemLength);
    EXPECT_TRUE(registered());
}

}  // namespace
}  // namespace glintmark::platform
