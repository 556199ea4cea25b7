#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "linux/notifications/FreedesktopNotifications.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr auto serverXml = R"xml(<node>
  <interface name="org.freedesktop.Notifications">
    <method name="GetServerInformation">
      <arg type="s" direction="out"/><arg type="s" direction="out"/>
      <arg type="s" direction="out"/><arg type="s" direction="out"/>
    </method>
    <method name="GetCapabilities"><arg type="as" direction="out"/></method>
    <method name="Notify">
      <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
      <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="as" direction="in"/>
      <arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
      <arg type="u" direction="out"/>
    </method>
  </interface>
</node>)xml";

class FakeNotificationDaemon {
public:
    explicit FakeNotificationDaemon(const PrivateBus& bus) : peer_(bus) {
        peer_.offer(
            "/org/freedesktop/Notifications", serverXml,
            [this](const std::string& method, GVariant* arguments,
                   GDBusMethodInvocation* invocation) { answer(method, arguments, invocation); });
        peer_.ownName("org.freedesktop.Notifications");
    }

    FakePeer& peer() { return peer_; }

    bool supportsMarkup = false;
    bool refuses = false;
    std::string silentAt;  ///< A method that is never answered.
    int unanswered = 0;
    std::vector<std::string> shown;  ///< The arguments of each Notify.

private:
    void answer(const std::string& method, GVariant* arguments, GDBusMethodInvocation* invocation) {
        if (method == silentAt) {
            ++unanswered;
            kept_.emplace_back(invocation);
        } else if (refuses) {
            refuse(invocation, "no room");
        } else if (method == "GetServerInformation") {
            g_dbus_method_invocation_return_value(invocation,
                                                  g_variant_new("(ssss)", "fake", "", "1", "1.2"));
        } else if (method == "GetCapabilities") {
            const std::vector<const char*> names{"body",
                                                 supportsMarkup ? "body-markup" : "actions"};
            g_dbus_method_invocation_return_value(
                invocation, g_variant_new("(@as)", g_variant_new_strv(names.data(), 2)));
        } else {
            shown.push_back(variantText(arguments));
            g_dbus_method_invocation_return_value(invocation, g_variant_new("(u)", 1U));
        }
    }

    FakePeer peer_;
    std::vector<GObjectHandle<GDBusMethodInvocation>> kept_;
};

class FreedesktopNotificationsTest : public testing::Test {
protected:
    void startServer() { server_ = std::make_unique<FakeNotificationDaemon>(daemon_); }

    /// The handler's result: "granted", "refused" or "refused: " and the error.
    std::string authorize() {
        std::string answer;
        center_->requestAuthorization(authorizationAlert | authorizationSound,
                                      [&](bool granted, const std::optional<std::string>& error) {
                                          answer = granted ? "granted" : "refused";
                                          answer += error ? ": " + *error : "";
                                      });
        EXPECT_EQ(answer, "");  // never before the call has returned
        EXPECT_TRUE(waitUntil([&] { return !answer.empty(); }));
        return answer;
    }

    /// Adds a notification. `errors_` gets its error, or "none".
    void begin(const std::string& title, const std::string& body) {
        center_->add({"id", title, body}, [this](const std::optional<std::string>& error) {
            errors_.push_back(error.value_or("none"));
        });
    }

    /// Adds a notification and waits for its error, or "none".
    std::string add(const std::string& title, const std::string& body) {
        errors_.clear();
        begin(title, body);
        EXPECT_THAT(errors_, ElementsAre());  // never before the call has returned
        EXPECT_TRUE(waitUntil([&] { return !errors_.empty(); }));
        runPending();
        EXPECT_EQ(errors_.size(), 1U);
        return errors_.back();
    }

    std::vector<std::string> errors_;
    PrivateBus daemon_;
    std::unique_ptr<FakeNotificationDaemon> server_;
    SessionBus bus_;
    std::unique_ptr<FreedesktopNotifications> center_ =
        std::make_unique<FreedesktopNotifications>(bus_, "file:///glintmark.svg");
};

TEST_F(FreedesktopNotificationsTest, AuthorisedWhenTheServerAnswers) {
    startServer();
    EXPECT_EQ(authorize(), "granted");
}

TEST_F(FreedesktopNotificationsTest, NotAuthorisedWithoutAServer) {
    EXPECT_THAT(authorize(), HasSubstr("refused: "));
    EXPECT_THAT(authorize(), HasSubstr("org.freedesktop.Notifications"));
}

TEST_F(FreedesktopNotificationsTest, NotAuthorisedByAServerThatRefuses) {
    startServer();
    server_->refuses = true;
    EXPECT_EQ(authorize(), "refused: no room");
}

TEST_F(FreedesktopNotificationsTest, ShowsNameIconTitleBodyAndDesktopEntry) {
    startServer();
    EXPECT_EQ(add("Icon applied", "My Site.webloc"), "none");
    EXPECT_THAT(
        server_->shown,
        ElementsAre(
            "('Glintmark', 0, 'file:///glintmark.svg', 'Icon applied', 'My Site.webloc', [], "
            "{'desktop-entry': <'com.quorvel.Glintmark'>}, -1)"));
}

TEST_F(FreedesktopNotificationsTest, TheBodyIsEscapedIfTheServerSupportsMarkup) {
    startServer();
    server_->supportsMarkup = true;
    add("a & b", "<b>Tom & Jerry</b>.webloc");
    EXPECT_THAT(server_->shown.at(0), HasSubstr("'a & b'"));
    EXPECT_THAT(server_->shown.at(0), HasSubstr("'&lt;b&gt;Tom &amp; Jerry&lt;/b&gt;.webloc'"));

    server_->supportsMarkup = false;
    add("a", "Tom & Jerry");
    EXPECT_THAT(server_->shown.at(1), HasSubstr("'Tom & Jerry'"));
}

TEST_F(FreedesktopNotificationsTest, NamesThatAreNotUTF8AreStillShown) {
    startServer();
    EXPECT_EQ(add("t", "a\xff.webloc"), "none");
    EXPECT_THAT(server_->shown.at(0), HasSubstr("'a\xef\xbf\xbd.webloc'"));
    EXPECT_EQ(add("t", std::string("a\0b", 3)), "none");
    EXPECT_THAT(server_->shown.at(1), HasSubstr("'a'"));
}

TEST_F(FreedesktopNotificationsTest, TheHandlerGetsTheServersErrorMessage) {
    startServer();
    server_->refuses = true;
    EXPECT_EQ(add("t", "b"), "no room");
}

TEST_F(FreedesktopNotificationsTest, WithoutAServerTheHandlerGetsAnError) {
    EXPECT_THAT(add("t", "b"), HasSubstr("org.freedesktop.Notifications"));
}

TEST_F(FreedesktopNotificationsTest, WithoutABusTheHandlersGetAnError) {
    daemon_.stop(bus_);
    EXPECT_EQ(add("t", "b"), "There is no session bus");
    EXPECT_EQ(authorize(), "refused: There is no session bus");
}

TEST_F(FreedesktopNotificationsTest, AServerThatRestartsShowsTheNextNotification) {
    startServer();
    ASSERT_EQ(add("t", "first"), "none");
    server_->peer().die();
    EXPECT_THAT(add("t", "lost"), testing::Ne("none"));
    startServer();
    EXPECT_EQ(add("t", "second"), "none");
    EXPECT_THAT(server_->shown, ElementsAre(HasSubstr("'second'")));
}

TEST_F(FreedesktopNotificationsTest, AServerThatDiesBeforeItAnswersIsAnError) {
    for (const auto* method : {"GetCapabilities", "Notify"}) {
        startServer();
        server_->silentAt = method;
        errors_.clear();
        begin("t", "b");
        ASSERT_TRUE(waitUntil([&] { return server_->unanswered == 1; }));
        EXPECT_THAT(errors_, ElementsAre());  // a slow server blocks nothing
        server_->peer().die();
        ASSERT_TRUE(waitUntil([&] { return !errors_.empty(); }));
        EXPECT_THAT(errors_, ElementsAre(testing::Ne("none")));
    }
}

TEST_F(FreedesktopNotificationsTest, ABusThatIsLostBetweenTheTwoCallsIsAnError) {
    startServer();
    server_->silentAt = "GetCapabilities";
    begin("t", "b");
    ASSERT_TRUE(waitUntil([&] { return server_->unanswered == 1; }));
    daemon_.stop();
    ASSERT_TRUE(waitUntil([&] { return !errors_.empty(); }));
    EXPECT_THAT(errors_, ElementsAre(testing::Ne("none")));
}

TEST_F(FreedesktopNotificationsTest, HandlersAreCalledWhenTheCentreIsDestroyed) {
    startServer();
    server_->silentAt = "Notify";
    begin("t", "b");
    ASSERT_TRUE(waitUntil([&] { return server_->unanswered == 1; }));
    begin("t", "b");  // has made no call yet when the centre is destroyed
    center_.reset();
    EXPECT_TRUE(waitUntil([&] { return errors_.size() == 2; }));
}

TEST_F(FreedesktopNotificationsTest, AnyThreadMayAdd) {
    startServer();
    std::atomic<int> calls = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            center_->add({"id", "t", "b"}, [&](const std::optional<std::string>&) { ++calls; });
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(waitUntil([&] { return calls == 4; }));
    EXPECT_EQ(server_->shown.size(), 4U);
}

}  // namespace
}  // namespace glintmark::platform
