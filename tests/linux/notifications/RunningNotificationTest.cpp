#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/notifications/RunningNotification.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

constexpr auto serverXml = R"xml(<node>
  <interface name="org.freedesktop.Notifications">
    <method name="Notify">
      <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
      <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="as" direction="in"/>
      <arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
      <arg type="u" direction="out"/>
    </method>
    <method name="CloseNotification"><arg type="u" direction="in"/></method>
    <signal name="NotificationClosed"><arg type="u"/><arg type="u"/></signal>
    <signal name="ActionInvoked"><arg type="u"/><arg type="s"/></signal>
  </interface>
</node>)xml";

/// A notification daemon whose notifications have the numbers 7, 8 and so on.
class FakeServer {
public:
    explicit FakeServer(const PrivateBus& bus) : peer_(bus) {
        peer_.offer("/org/freedesktop/Notifications", serverXml,
                    [this](const std::string& method, GVariant* arguments,
                           GDBusMethodInvocation* invocation) {
                        calls.push_back(method + variantText(arguments));
                        if (refuses) {
                            refuse(invocation, "no room");
                        } else if (method == "Notify") {
                            g_dbus_method_invocation_return_value(invocation,
                                                                  g_variant_new("(u)", id++));
                        } else {
                            g_dbus_method_invocation_return_value(invocation, nullptr);
                        }
                    });
        peer_.ownName("org.freedesktop.Notifications");
    }

    /// When it returns, the program's bus connection has the signal, in front of any reply.
    void emit(const char* name, GVariant* arguments) { peer_.emit(name, arguments); }
    FakePeer& peer() { return peer_; }

    std::vector<std::string> calls;
    bool refuses = false;
    guint id = 7;

private:
    FakePeer peer_;
};

class RunningNotificationTest : public testing::Test {
protected:
    void post() {
        notification_->post("Watching <b>",
                            {{"add", "Add…", [this] { ran_.emplace_back("add"); }},
                             {"quit", "Quit", [this] { ran_.emplace_back("quit"); }}});
    }

    /// Posts and waits until the program knows the notification's number: it then closes it.
    void postAndWait() {
        const auto before = server_->calls.size();
        post();
        ASSERT_TRUE(waitUntil([&] { return server_->calls.size() > before; }));
        roundTrip();
    }

    /// Everything that the server sent before has arrived and was handled.
    void roundTrip() { ASSERT_TRUE(server_->peer().isHandledBy(bus_.connection())); }

    PrivateBus daemon_;
    std::unique_ptr<FakeServer> server_ = std::make_unique<FakeServer>(daemon_);
    SessionBus bus_;
    std::unique_ptr<RunningNotification> notification_ =
        std::make_unique<RunningNotification>(bus_, "glintmark");
    std::vector<std::string> ran_;
};

TEST_F(RunningNotificationTest, HasAButtonForEachCommand) {
    postAndWait();
    EXPECT_THAT(server_->calls,
                ElementsAre("Notify('Glintmark', 0, 'glintmark', 'Glintmark', 'Watching <b>', "
                            "['add', 'Add…', 'quit', 'Quit'], "
                            "{'desktop-entry': <'com.quorvel.Glintmark'>}, -1)"));
}

TEST_F(RunningNotificationTest, AButtonRunsItsCommandOnceAndClosesTheNotification) {
    postAndWait();
    server_->emit("ActionInvoked", g_variant_new("(us)", 7U, "quit"));
    server_->emit("ActionInvoked", g_variant_new("(us)", 7U, "quit"));
    ASSERT_TRUE(waitUntil([&] { return !ran_.empty(); }));
    roundTrip();
    EXPECT_THAT(ran_, ElementsAre("quit"));
    EXPECT_EQ(server_->calls.back(), "CloseNotification(7,)");
}

TEST_F(RunningNotificationTest, SignalsOfOtherNotificationsAndUnknownButtonsRunNothing) {
    postAndWait();
    server_->emit("ActionInvoked", g_variant_new("(us)", 6U, "quit"));
    server_->emit("ActionInvoked", g_variant_new("(us)", 7U, "default"));
    server_->emit("NotificationClosed", g_variant_new("(uu)", 6U, 1U));
    FakePeer other(daemon_);
    other.offer("/org/freedesktop/Notifications", serverXml, {});
    other.emit("ActionInvoked", g_variant_new("(us)", 7U, "quit"));
    other.call("org.freedesktop.DBus", "/", "org.freedesktop.DBus.Peer", "Ping", "()");
    roundTrip();
    EXPECT_THAT(ran_, ElementsAre());
    server_->emit("ActionInvoked", g_variant_new("(us)", 7U, "add"));
    ASSERT_TRUE(waitUntil([&] { return !ran_.empty(); }));
    EXPECT_THAT(ran_, ElementsAre("add"));
}

TEST_F(RunningNotificationTest, ASecondPostReplacesTheFirst) {
    postAndWait();
    postAndWait();
    EXPECT_THAT(server_->calls.back(), testing::StartsWith("Notify('Glintmark', 7, "));
}

TEST_F(RunningNotificationTest, AClosedNotificationIsForgotten) {
    postAndWait();
    server_->emit("NotificationClosed", g_variant_new("(uu)", 7U, 2U));
    server_->emit("ActionInvoked", g_variant_new("(us)", 7U, "quit"));
    roundTrip();
    EXPECT_THAT(ran_, ElementsAre());
    postAndWait();
    EXPECT_THAT(server_->calls.back(), testing::StartsWith("Notify('Glintmark', 0, "));
}

TEST_F(RunningNotificationTest, TheProgramsEndWithdrawsIt) {
    postAndWait();
    notification_->withdraw();
    notification_->withdraw();
    roundTrip();
    EXPECT_THAT(server_->calls,
                ElementsAre(testing::StartsWith("Notify"), "CloseNotification(7,)"));
}

TEST_F(RunningNotificationTest, AServiceThatRefusesOrIsMissingIsIgnored) {
    server_->refuses = true;
    postAndWait();
    server_->emit("ActionInvoked", g_variant_new("(us)", 0U, "quit"));
    roundTrip();
    notification_->withdraw();
    server_->peer().die();
    post();
    notification_.reset();
    runPending();
    EXPECT_THAT(ran_, ElementsAre());
}

TEST_F(RunningNotificationTest, WithoutABusNothingHappens) {
    postAndWait();
    daemon_.stop(bus_);
    post();
    notification_->withdraw();
    EXPECT_THAT(ran_, ElementsAre());
}

}  // namespace
}  // namespace glintmark::platform
