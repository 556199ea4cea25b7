#include <glib/gstdio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "linux/files/WholeFile.h"
#include "linux/panel/PortalOpenPanel.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"

namespace glintmark::platform {
namespace {

constexpr auto portalName = "org.freedesktop.portal.Desktop";
constexpr auto portalXml = R"xml(<node>
  <interface name="org.freedesktop.portal.FileChooser">
    <property name="version" type="u" access="read"/>
    <method name="OpenFile">
      <arg type="s" direction="in"/><arg type="s" direction="in"/>
      <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/>
    </method>
  </interface>
</node>)xml";
constexpr auto requestXml = R"xml(<node>
  <interface name="org.freedesktop.portal.Request"><method name="Close"/></interface>
</node>)xml";

/// How a fake portal reacts to OpenFile.
enum class PortalBehaviour {
    answers,
    answersBeforeItReturns,
    refuses,
    diesWithoutReturning,
    diesWithTheDialogOpen,
    waits,
};

class FakePortal {
public:
    explicit FakePortal(const PrivateBus& bus) : peer_(bus) {
        peer_.offer(
            "/org/freedesktop/portal/desktop", portalXml,
            [this](const std::string&, GVariant* arguments, GDBusMethodInvocation* invocation) {
                open(arguments, invocation);
            },
            [this](const std::string&) { return g_variant_new_uint32(version); });
        peer_.ownName(portalName);
    }

    void die() { peer_.die(); }
    void answer() {
        const GVariantHandle response(g_variant_take_ref(
            g_variant_parse(nullptr, answerText.c_str(), nullptr, nullptr, nullptr)));
        g_dbus_connection_emit_signal(peer_.connection(), nullptr, path_.c_str(),
                                      "org.freedesktop.portal.Request", "Response", response.get(),
                                      nullptr);
    }

    /// Answers a request of the same program with another token.
    void answerAt(const std::string& token, const std::string& uri) {
        const std::string text = "(uint32 0, {'uris': <['" + uri + "']>})";
        const GVariantHandle response(
            g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, nullptr));
        g_dbus_connection_emit_signal(
            peer_.connection(), nullptr, (path_.substr(0, path_.rfind('/') + 1) + token).c_str(),
            "org.freedesktop.portal.Request", "Response", response.get(), nullptr);
    }

    PortalBehaviour behaviour = PortalBehaviour::answers;
    guint version = 3;
    std::string answerText = "(uint32 0, {'uris': <['file:///home/kim/My%20Links']>})";
    std::string openFileArguments;    ///< Empty until the call.
    std::vector<std::string> tokens;  ///< Of all calls.
    int closed = 0;                   ///< How often its dialog was closed.

private:
    void open(GVariant* arguments, GDBusMethodInvocation* invocation) {
        openFileArguments = variantText(arguments);
        const GVariantHandle options(g_variant_get_child_value(arguments, 2));
        const char* token = "";
        g_variant_lookup(options.get(), "handle_token", "&s", &token);
        tokens.emplace_back(token);
        std::string sender = g_dbus_method_invocation_get_sender(invocation) + 1;
        std::replace(sender.begin(), sender.end(), '.', '_');
        path_ = "/org/freedesktop/portal/desktop/request/" + sender + "/" + token;
        peer_.offer(path_.c_str(), requestXml,
                    [this](const std::string&, GVariant*, GDBusMethodInvocation* close) {
                        ++closed;
                        g_dbus_method_invocation_return_value(close, nullptr);
                    });
        switch (behaviour) {
            case PortalBehaviour::refuses:
                refuse(invocation, "no backend");
                return;
            case PortalBehaviour::diesWithoutReturning:
                g_object_unref(invocation);
                dieSoon();
                return;
            case PortalBehaviour::answersBeforeItReturns:
                answer();
                break;
            case PortalBehaviour::answers:
                later_.emplace([] { return true; }, [this] { answer(); });
                break;
            case PortalBehaviour::diesWithTheDialogOpen:
                dieSoon();
                break;
            case PortalBehaviour::waits:
                break;
        }
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", path_.c_str()));
    }

    void dieSoon() {
        later_.emplace([] { return true; }, [this] { die(); });
    }

    FakePeer peer_;
    std::string path_;
    std::optional<DoWhen> later_;
};

/// A folder of fake programs. It is the whole PATH.
class FakePrograms {
public:
    FakePrograms() : path_(g_getenv("PATH")) {
        const GStringHandle folder(g_dir_make_tmp("glintmark-bin-XXXXXX", nullptr));
        folder_ = folder.get();
        g_setenv("PATH", folder_.c_str(), TRUE);
    }
    ~FakePrograms() {
        for (const auto& program : programs_) {
            g_unlink((folder_ + "/" + program).c_str());
        }
        g_rmdir(folder_.c_str());
        g_setenv("PATH", path_.c_str(), TRUE);
    }

    void add(const std::string& name, const std::string& script) {
        const std::string file = folder_ + "/" + name;
        g_file_set_contents(file.c_str(), ("#!/bin/sh\n" + script + "\n").c_str(), -1, nullptr);
        g_chmod(file.c_str(), 0700);
        programs_.push_back(name);
    }

private:
    std::string path_;
    std::string folder_;
    std::vector<std::string> programs_;
};

class PortalOpenPanelTest : public testing::Test {
protected:
    FakePortal& startPortal(PortalBehaviour behaviour) {
        portal_ = std::make_unique<FakePortal>(daemon_);
        portal_->behaviour = behaviour;
        return *portal_;
    }

    OpenPanel::Result choose() {
        OpenPanel::Settings settings;
        settings.canChooseDirectories = true;
        settings.canChooseFiles = false;
        settings.message = "Choose a folder";
        return panel_.runModal(settings);
    }

    /// The chosen path, "cancelled", or "nothing" if the answer has no path.
    std::string outcome() {
        const auto result = choose();
        return result.response == ModalResponse::cancel ? "cancelled"
                                                        : result.path.value_or("nothing");
    }

    PrivateBus daemon_;
    FakePrograms programs_;
    std::unique_ptr<FakePortal> portal_;
    SessionBus bus_;
    MainLoops loops_;
    PortalOpenPanel panel_{bus_, loops_};
};

TEST_F(PortalOpenPanelTest, RequestsOneFolderFromThePortal) {
    startPortal(PortalBehaviour::answers);
    EXPECT_EQ(outcome(), "/home/kim/My Links");
    EXPECT_EQ(portal_->openFileArguments, "('', 'Choose a folder', {'handle_token': <'" +
                                              portal_->tokens.at(0) +
                                              "'>, 'modal': <true>, 'directory': <true>, "
                                              "'multiple': <false>})");
    runPending();
    EXPECT_EQ(portal_->closed, 0);  // the portal has closed it
}

TEST_F(PortalOpenPanelTest, EachRequestHasARandomToken) {
    startPortal(PortalBehaviour::answers);
    outcome();
    outcome();
    ASSERT_EQ(portal_->tokens.size(), 2U);
    EXPECT_NE(portal_->tokens[0], portal_->tokens[1]);
    for (const auto& token : portal_->tokens) {
        EXPECT_THAT(token, testing::MatchesRegex("glintmark_[0-9A-F_]+"));
        EXPECT_GE(token.size(), 32U);
    }
}

TEST_F(PortalOpenPanelTest, AnAnswerToAnotherRequestIsIgnored) {
    startPortal(PortalBehaviour::waits);
    const DoWhen answer([&] { return !portal_->tokens.empty(); },
                        [&] {
                            portal_->answerAt("glintmark", "file:///wrong/path");
                            portal_->answer();
                        });
    EXPECT_EQ(outcome(), "/home/kim/My Links");
}

TEST_F(PortalOpenPanelTest, AnAnswerBeforeTheCallReturnsIsNotMissed) {
    startPortal(PortalBehaviour::answersBeforeItReturns);
    EXPECT_EQ(outcome(), "/home/kim/My Links");
}

TEST_F(PortalOpenPanelTest, ThePathIsTheBytesOfTheURI) {
    startPortal(PortalBehaviour::answers).answerText =
        "(uint32 0, {'uris': <['file:///a%0Ab%FFc%25', 'file:///second']>})";
    EXPECT_EQ(outcome(),
              "/a\nb\xff"
              "c%");
}

TEST_F(PortalOpenPanelTest, AnswersThatChooseNothing) {
    const std::vector<std::pair<std::string, std::string>> table{
        {"(uint32 1, @a{sv} {})", "cancelled"},
        {"(uint32 2, @a{sv} {})", "cancelled"},
        {"(uint32 0, @a{sv} {})", "nothing"},
        {"(uint32 0, {'uris': <@as []>})", "nothing"},
        {"(uint32 0, {'uris': <'file:///not-a-list'>})", "nothing"},
        {"(uint32 0, {'uris': <['https://example.com/']>})", "nothing"},
        {"('not', 'a response')", "cancelled"},
    };
    for (const auto& [answer, expected] : table) {
        startPortal(PortalBehaviour::answers).answerText = answer;
        EXPECT_EQ(outcome(), expected) << answer;
        portal_->die();
    }
}

TEST_F(PortalOpenPanelTest, APortalThatDiesWithTheDialogOpenCountsAsCancelled) {
    programs_.add("zenity", "echo /not/asked");
    startPortal(PortalBehaviour::diesWithTheDialogOpen);
    EXPECT_EQ(outcome(), "cancelled");
}

TEST_F(PortalOpenPanelTest, ABusThatDiesWithTheDialogOpenCountsAsCancelled) {
    startPortal(PortalBehaviour::waits);
    const DoWhen stop([&] { return !portal_->openFileArguments.empty(); }, [&] { daemon_.stop(); });
    EXPECT_EQ(outcome(), "cancelled");
}

TEST_F(PortalOpenPanelTest, ReplacesAPortalThatCannotShowFoldersByAProgram) {
    programs_.add("zenity", "echo /from/zenity");
    startPortal(PortalBehaviour::answers).version = 2;
    EXPECT_EQ(outcome(), "/from/zenity");
    portal_->die();
    startPortal(PortalBehaviour::refuses);
    EXPECT_EQ(outcome(), "/from/zenity");
    portal_->die();
    startPortal(PortalBehaviour::diesWithoutReturning);
    EXPECT_EQ(outcome(), "/from/zenity");
    EXPECT_EQ(outcome(), "/from/zenity");  // without a portal
    daemon_.stop(bus_);
    EXPECT_EQ(outcome(), "/from/zenity");  // without a bus
}

TEST_F(PortalOpenPanelTest, WithoutPortalAndProgramThePanelIsCancelled) {
    EXPECT_EQ(outcome(), "cancelled");
}

TEST_F(PortalOpenPanelTest, ZenityGetsTheOptionsForAFolder) {
    programs_.add("zenity", R"(printf '%s\n' "$*")");
    EXPECT_EQ(outcome(), "--file-selection --title=Choose a folder --directory");
}

TEST_F(PortalOpenPanelTest, KdialogReplacesAMissingZenity) {
    programs_.add("kdialog", R"(printf '%s\n' "$*")");
    EXPECT_EQ(outcome(),
              std::string("--title Choose a folder --getexistingdirectory ") + g_get_home_dir());
}

TEST_F(PortalOpenPanelTest, TheProgramsOutputLosesOnlyItsLastLineFeed) {
    programs_.add("zenity", R"(printf '/a\n\377b\n\n')");
    EXPECT_EQ(outcome(),
              "/a\n\xff"
              "b\n");
}

TEST_F(PortalOpenPanelTest, AProgramThatFailsOrPrintsNothingChoosesNothing) {
    programs_.add("zenity", "echo /half; exit 1");
    EXPECT_EQ(outcome(), "cancelled");
    programs_.add("zenity", "kill -9 $$");
    EXPECT_EQ(outcome(), "cancelled");
    programs_.add("zenity", "exit 0");
    EXPECT_EQ(outcome(), "nothing");
}

TEST_F(PortalOpenPanelTest, EndingTheProgramClosesThePortalsDialog) {
    startPortal(PortalBehaviour::waits);
    const DoWhen end([&] { return !portal_->openFileArguments.empty(); },
                     [&] { loops_.quitAll(); });
    EXPECT_EQ(outcome(), "cancelled");
    EXPECT_TRUE(waitUntil([&] { return portal_->closed == 1; }));
}

TEST_F(PortalOpenPanelTest, EndingTheProgramEndsTheDialogsProgram) {
    const std::string mark = daemon_.folder() + "/ended";
    const std::string begun = daemon_.folder() + "/begun";
    programs_.add("zenity", "trap ': >" + mark + "; exit' TERM; : >" + begun +
                                "; while :; do /bin/sleep 0.01; done");
    const DoWhen end([&] { return g_file_test(begun.c_str(), G_FILE_TEST_EXISTS) != FALSE; },
                     [&] { loops_.quitAll(); });
    EXPECT_EQ(outcome(), "cancelled");
    EXPECT_TRUE(waitUntil([&] { return g_file_test(mark.c_str(), G_FILE_TEST_EXISTS) != FALSE; }));
    g_unlink(mark.c_str());
    g_unlink(begun.c_str());
}

TEST_F(PortalOpenPanelTest, ASecondPanelIsCancelledAndShowsTheFirstOnesDialogAnew) {
    startPortal(PortalBehaviour::waits);
    std::string second;
    std::optional<DoWhen> answer;
    const DoWhen inner([&] { return portal_->tokens.size() == 1; },
                       [&] {
                           second = outcome();
                           answer.emplace([&] { return portal_->tokens.size() == 2; },
                                          [&] {
                                              portal_->answerAt(portal_->tokens[0], "file:///old");
                                              portal_->answer();
                                          });
                       });
    EXPECT_EQ(outcome(), "/home/kim/My Links");
    EXPECT_EQ(second, "cancelled");
    EXPECT_EQ(portal_->closed, 1);
    EXPECT_EQ(portal_->tokens.size(), 2U);
}

TEST_F(PortalOpenPanelTest, ASecondPanelStartsTheDialogsProgramAnew) {
    const std::string starts = daemon_.folder() + "/starts";
    programs_.add("zenity", "echo x >>" + starts + "; read line <" + starts +
                                "; [ $(/usr/bin/wc -l <" + starts +
                                ") = 2 ] && echo /second && exit; exec /bin/sleep 1000");
    // The file exists before its first line does.
    const auto wasStarted = [&] { return !readFile(starts).empty(); };
    std::string second;
    const DoWhen inner(wasStarted, [&] { second = outcome(); });
    EXPECT_EQ(outcome(), "/second");
    EXPECT_EQ(second, "cancelled");
    g_unlink(starts.c_str());
}

}  // namespace
}  // namespace glintmark::platform
