#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "linux/bus/LoginSession.h"
#include "linux/bus/SessionBus.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;

constexpr auto managerXML = R"(<node><interface name="org.freedesktop.login1.Manager">
  <method name="GetSession"><arg type="s" direction="in"/><arg type="o" direction="out"/></method>
  <method name="GetSessionByPID"><arg type="u" direction="in"/><arg type="o" direction="out"/></method>
  <method name="GetUser"><arg type="u" direction="in"/><arg type="o" direction="out"/></method>
</interface></node>)";
constexpr auto sessionXML = R"(<node><interface name="org.freedesktop.login1.Session">
  <property name="State" type="s" access="read"/>
</interface></node>)";
constexpr auto userXML = R"(<node><interface name="org.freedesktop.login1.User">
  <property name="State" type="s" access="read"/>
</interface></node>)";
constexpr auto sessionPath = "/org/freedesktop/login1/session/_32";
constexpr auto userPath = "/org/freedesktop/login1/user/_1000";

/// A system bus of this test, and on it, if wanted, a login manager.
class LoginSessionTest : public testing::Test {
protected:
    LoginSessionTest() {
        g_setenv("DBUS_SYSTEM_BUS_ADDRESS", system_.address().c_str(), TRUE);
        g_unsetenv("XDG_SESSION_ID");
    }
    ~LoginSessionTest() override {
        g_unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
        g_unsetenv("XDG_SESSION_ID");
    }

    void startManager() {
        manager_.emplace(system_);
        manager_->offer(
            "/org/freedesktop/login1", managerXML,
            [this](const std::string& method, GVariant* arguments,
                   GDBusMethodInvocation* invocation) { answer(method, arguments, invocation); });
        const auto state = [this](const std::string& /*name*/) {
            return g_variant_new_string(state_.c_str());
        };
        manager_->offer(sessionPath, sessionXML, {}, state);
        manager_->offer(userPath, userXML, {}, state);
        manager_->ownName("org.freedesktop.login1");
    }

    LoginSession asked() {
        const GObjectHandle<GCancellable> cancellable(g_cancellable_new());
        std::optional<LoginSession> found;
        askLoginSession(cancellable.get(), [&found](LoginSession session) { found = session; });
        EXPECT_TRUE(waitUntil([&found] { return found.has_value(); }));
        return found.value_or(LoginSession::noAnswer);
    }

    PrivateBus system_;
    std::string state_ = "active";
    std::string error_;  ///< The manager's answer, without its prefix; none if empty.
    std::vector<std::string> calls_;

private:
    void answer(const std::string& method, GVariant* arguments, GDBusMethodInvocation* invocation) {
        calls_.push_back(method + variantText(arguments));
        const bool isAboutUser = method == "GetUser";
        if (!error_.empty() && !isAboutUser) {
            g_dbus_method_invocation_return_dbus_error(
                invocation, ("org.freedesktop.login1." + error_).c_str(), "no");
            return;
        }
        g_dbus_method_invocation_return_value(
            invocation, g_variant_new("(o)", isAboutUser ? userPath : sessionPath));
    }

    std::optional<FakePeer> manager_;
};

TEST_F(LoginSessionTest, TheStateOfTheSessionDecides) {
    startManager();
    g_setenv("XDG_SESSION_ID", "2", TRUE);
    for (const auto* state : {"active", "online"}) {
        state_ = state;
        EXPECT_EQ(asked(), LoginSession::open) << state;
    }
    for (const auto* state : {"closing", "offline", "lingering", ""}) {
        state_ = state;
        EXPECT_EQ(asked(), LoginSession::over) << state;
    }
    EXPECT_EQ(calls_.front(), "GetSession('2',)");
    error_ = "NoSuchSession";
    EXPECT_EQ(asked(), LoginSession::over);
    error_ = "Confused";
    EXPECT_EQ(asked(), LoginSession::noAnswer);
}

TEST_F(LoginSessionTest, WithoutASessionOfItsOwnTheProcessAsksForItsUser) {
    startManager();
    EXPECT_EQ(asked(), LoginSession::open);
    EXPECT_EQ(calls_, std::vector<std::string>{"GetSessionByPID(0,)"});
    calls_.clear();
    error_ = "NoSessionForPID";
    EXPECT_EQ(asked(), LoginSession::open);
    state_ = "lingering";
    EXPECT_EQ(asked(), LoginSession::over);
    ASSERT_EQ(calls_.size(), 4U);
    EXPECT_EQ(calls_[1], "GetUser(" + std::to_string(::getuid()) + ",)");
}

TEST_F(LoginSessionTest, WithoutAManagerOrASystemBusThereIsNone) {
    EXPECT_EQ(asked(), LoginSession::noManager);
    system_.stop();
    EXPECT_EQ(asked(), LoginSession::noManager);
}

bool isLeaderGone = false;

/// The bus is lost after the leader has ended. What then happens until the bus is tried again.
class LostBusTest : public LoginSessionTest {
protected:
    ~LostBusTest() override { isLeaderGone = false; }

    void loseBus() {
        g_setenv("XDG_SESSION_ID", "2", TRUE);
        bus_.setEndHandler([this](SessionBus::End why) { ends_.push_back(why); });
        isLeaderGone = true;
        session_.stop(bus_);
    }

    PrivateBus session_;
    SessionBus bus_{5s, [] { return isLeaderGone; }};
    std::vector<SessionBus::End> ends_;
};

TEST_F(LostBusTest, ASessionThatIsOpenKeepsTheProgram) {
    startManager();
    loseBus();
    ASSERT_TRUE(waitUntil([this] { return calls_.size() >= 2; })) << "asked at each try";
    EXPECT_TRUE(ends_.empty());
    state_ = "closing";
    ASSERT_TRUE(waitUntil([this] { return !ends_.empty(); }));
    EXPECT_EQ(ends_.front(), SessionBus::End::sessionIsOver);
}

TEST_F(LostBusTest, WithoutAManagerTheSessionEndsWithItsLeader) {
    loseBus();
    ASSERT_TRUE(waitUntil([this] { return !ends_.empty(); }));
    EXPECT_EQ(ends_.front(), SessionBus::End::sessionIsOver);
}

TEST_F(LostBusTest, ABusThatReturnsKeepsTheProgram) {
    startManager();
    loseBus();
    session_.start();
    ASSERT_TRUE(waitUntil([this] { return bus_.connection() != nullptr; }));
    EXPECT_TRUE(ends_.empty());
}

}  // namespace
}  // namespace glintmark::platform
