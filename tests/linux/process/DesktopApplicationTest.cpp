#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/process/DesktopApplication.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

class DesktopApplicationTest : public testing::Test {
protected:
    DesktopApplicationTest() {
        application_->setHandlers(
            {.started =
                 [this](DesktopApplication::Start start) {
                     calls_.emplace_back(start == DesktopApplication::Start::byDesktop ? "start"
                                                                                       : "second");
                 },
             .actions = {{"add-folder", [this] { calls_.emplace_back("add-folder"); }},
                         {"quit", [this] { calls_.emplace_back("quit"); }}}});
        bus_.acquireName();
    }

    /// The name of the error; empty without one.
    std::string call(const char* method, const char* arguments) {
        return desktop_
            .call(SessionBus::programName, DesktopApplication::path, DesktopApplication::interface,
                  method, arguments)
            .errorName;
    }

    PrivateBus daemon_;
    SessionBus bus_;
    std::unique_ptr<DesktopApplication> application_ = std::make_unique<DesktopApplication>(bus_);
    FakePeer desktop_{daemon_};
    std::vector<std::string> calls_;
};

TEST_F(DesktopApplicationTest, AStartFromTheDesktopIsReported) {
    EXPECT_EQ(call("Activate", "(@a{sv} {'desktop-startup-id': <'x'>},)"), "");
    ASSERT_TRUE(waitUntil([&] { return calls_.size() == 1; }));
    EXPECT_EQ(call("Open", "(['file:///a'], @a{sv} {})"), "");
    ASSERT_TRUE(waitUntil([&] { return calls_.size() == 2; }));
    EXPECT_THAT(calls_, ElementsAre("start", "start"));
}

TEST_F(DesktopApplicationTest, RunsTheActionsOfTheEntry) {
    for (const char* name : {"add-folder", "quit"}) {
        const std::string arguments = "('" + std::string(name) + "', @av [], @a{sv} {})";
        EXPECT_EQ(call("ActivateAction", arguments.c_str()), "");
    }
    ASSERT_TRUE(waitUntil([&] { return calls_.size() == 2; }));
    EXPECT_THAT(calls_, ElementsAre("add-folder", "quit"));
}

TEST_F(DesktopApplicationTest, RefusesUnknownActionsAndWrongArguments) {
    EXPECT_EQ(call("ActivateAction", "('format', @av [], @a{sv} {})"),
              "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(call("ActivateAction", "('quit',)"), "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(call("Stop", "()"), "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_THAT(calls_, ElementsAre());
}

TEST_F(DesktopApplicationTest, TheCallerHasItsAnswerBeforeTheActionEnds) {
    bool isAnswered = false;
    bool wasAnswered = false;
    application_->setHandlers({.started = {}, .actions = {{"add-folder", [&] {
                                                               // Like a dialog: a nested loop in
                                                               // the action.
                                                               wasAnswered = waitUntil(
                                                                   [&] { return isAnswered; });
                                                               calls_.emplace_back("done");
                                                           }}}});
    const auto answered = [](GObject* source, GAsyncResult* result, gpointer flag) {
        const GVariantHandle reply(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr));
        *static_cast<bool*>(flag) = reply != nullptr;
    };
    g_dbus_connection_call(desktop_.connection(), SessionBus::programName, DesktopApplication::path,
                           DesktopApplication::interface, "ActivateAction",
                           g_variant_new("(sava{sv})", "add-folder", nullptr, nullptr), nullptr,
                           G_DBUS_CALL_FLAGS_NONE, -1, nullptr, answered, &isAnswered);
    ASSERT_TRUE(waitUntil([&] { return !calls_.empty(); }));
    EXPECT_TRUE(wasAnswered);
}

TEST_F(DesktopApplicationTest, AnActionInsideTheDialogOfAnotherRuns) {
    bool isOpen = false;
    application_->setHandlers({.started = {},
                               .actions = {{"add-folder",
                                            [&] {
                                                isOpen = true;
                                                waitUntil([&] { return !calls_.empty(); });
                                                calls_.emplace_back("closed");
                                            }},
                                           {"quit", [&] { calls_.emplace_back("quit"); }}}});
    const DoWhen quit([&] { return isOpen; },
                      [&] { call("ActivateAction", "('quit', @av [], @a{sv} {})"); });
    EXPECT_EQ(call("ActivateAction", "('add-folder', @av [], @a{sv} {})"), "");
    ASSERT_TRUE(waitUntil([&] { return calls_.size() == 2; }));
    EXPECT_THAT(calls_, ElementsAre("quit", "closed"));
}

TEST_F(DesktopApplicationTest, ASecondStartIsReportedAsSuch) {
    DesktopApplication::reportSecondStart(desktop_.connection());
    g_dbus_connection_flush_sync(desktop_.connection(), nullptr, nullptr);
    ASSERT_TRUE(waitUntil([&] { return !calls_.empty(); }));
    EXPECT_THAT(calls_, ElementsAre("second"));
}

TEST_F(DesktopApplicationTest, AnswersOnALaterBusAsSoonAsTheNameIsOwned) {
    daemon_.stop(bus_);
    daemon_.start();
    FakePeer desktop(daemon_);
    ASSERT_TRUE(waitUntil([&] { return !desktop.ownerOf(SessionBus::programName).empty(); }));
    EXPECT_EQ(desktop
                  .call(SessionBus::programName, DesktopApplication::path,
                        DesktopApplication::interface, "Activate", "(@a{sv} {},)")
                  .errorName,
              "");
}

}  // namespace
}  // namespace glintmark::platform
