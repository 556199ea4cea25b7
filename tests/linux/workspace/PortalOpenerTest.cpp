#include <gio/gunixfdlist.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <utility>

#include "base/system/FileDescriptor.h"
#include "linux/workspace/PortalOpener.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

constexpr auto portalXml = R"xml(<node>
  <interface name="org.freedesktop.portal.OpenURI">
    <method name="OpenURI">
      <arg type="s" direction="in"/><arg type="s" direction="in"/>
      <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/>
    </method>
    <method name="OpenFile">
      <arg type="s" direction="in"/><arg type="h" direction="in"/>
      <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/>
    </method>
  </interface>
</node>)xml";

/// The path that a descriptor stands for.
std::string pathOf(int descriptor) {
    std::array<char, PATH_MAX> path{};
    const auto length =
        readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), path.data(), path.size());
    return {path.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

class FakePortal {
public:
    enum class Behaviour { responds, respondsFirst, refuses, diesLater, isSilent };

    explicit FakePortal(const PrivateBus& bus) : peer_(bus) {
        peer_.offer(
            "/org/freedesktop/portal/desktop", portalXml,
            [this](const std::string& method, GVariant* arguments,
                   GDBusMethodInvocation* invocation) { open(method, arguments, invocation); });
        peer_.ownName("org.freedesktop.portal.Desktop");
    }

    void die() { peer_.die(); }
    void respond() {
        g_dbus_connection_emit_signal(peer_.connection(), nullptr, path_.c_str(),
                                      "org.freedesktop.portal.Request", "Response",
                                      g_variant_new("(ua{sv})", response, nullptr), nullptr);
    }

    Behaviour behaviour = Behaviour::responds;
    guint response = 0;
    std::vector<std::string> opened;  ///< Methods and what they got.
    std::vector<std::string> activationTokens;

private:
    void open(const std::string& method, GVariant* arguments, GDBusMethodInvocation* invocation) {
        const GVariantHandle target(g_variant_get_child_value(arguments, 1));
        if (method == "OpenFile") {
            GUnixFDList* list =
                g_dbus_message_get_unix_fd_list(g_dbus_method_invocation_get_message(invocation));
            const FileDescriptor file(
                g_unix_fd_list_get(list, g_variant_get_handle(target.get()), nullptr));
            opened.push_back("OpenFile " + pathOf(file.get()));
        } else {
            opened.push_back("OpenURI " + variantText(target.get()));
        }
        const GVariantHandle options(g_variant_get_child_value(arguments, 2));
        const char* token = "";
        g_variant_lookup(options.get(), "handle_token", "&s", &token);
        const char* activation = "none";
        g_variant_lookup(options.get(), "activation_token", "&s", &activation);
        activationTokens.emplace_back(activation);
        std::string sender = g_dbus_method_invocation_get_sender(invocation) + 1;
        std::replace(sender.begin(), sender.end(), '.', '_');
        path_ = "/org/freedesktop/portal/desktop/request/" + sender + "/" + token;
        if (behaviour == Behaviour::refuses) {
            refuse(invocation, "not here");
            return;
        }
        if (behaviour == Behaviour::respondsFirst) {
            respond();
        }
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", path_.c_str()));
        if (behaviour == Behaviour::responds) {
            respond();
        } else if (behaviour == Behaviour::diesLater) {
            later_.emplace([] { return true; }, [this] { die(); });
        }
    }

    FakePeer peer_;
    std::string path_;
    std::optional<DoWhen> later_;
};

class PortalOpenerTest : public testing::Test {
protected:
    FakePortal& startPortal(FakePortal::Behaviour behaviour) {
        portal_ = std::make_unique<FakePortal>(daemon_);
        portal_->behaviour = behaviour;
        return *portal_;
    }

    void open(const std::string& uri, const std::string& activationToken = "") {
        openThroughPortal(connection_.get(), uri, activationToken, [this](bool hasOpened) {
            ++ends_;
            fallbacks_ += hasOpened ? 0 : 1;
        });
    }

    /// All messages that the portal has sent before are handled.
    void roundTrip() {
        FakePeer peer(daemon_);
        peer.call("org.freedesktop.DBus", "/", "org.freedesktop.DBus.Peer", "Ping", "()");
        ASSERT_TRUE(peer.isHandledBy(connection_.get()));
    }

    PrivateBus daemon_;
    GObjectHandle<GDBusConnection> connection_ = daemon_.connect();
    std::unique_ptr<FakePortal> portal_;
    int ends_ = 0;
    int fallbacks_ = 0;
};

TEST_F(PortalOpenerTest, AnAddressIsGivenToThePortalAsItIs) {
    for (const auto behaviour :
         {FakePortal::Behaviour::responds, FakePortal::Behaviour::respondsFirst}) {
        startPortal(behaviour);
        open("https://example.com/a?b=%20");
        ASSERT_TRUE(waitUntil([&] { return !portal_->opened.empty(); }));
        roundTrip();
        EXPECT_THAT(portal_->opened, ElementsAre("OpenURI 'https://example.com/a?b=%20'"));
        EXPECT_THAT(portal_->activationTokens, ElementsAre("none"));
        EXPECT_EQ(std::exchange(ends_, 0), 1);
        EXPECT_EQ(fallbacks_, 0);
        portal_->die();  // the request has ended, so this changes nothing
        roundTrip();
        EXPECT_EQ(fallbacks_, 0);
    }
}

TEST_F(PortalOpenerTest, ALaunchPassesItsActivationTokenOn) {
    startPortal(FakePortal::Behaviour::responds);
    open("https://example.com/", "of the launch");
    EXPECT_TRUE(waitUntil([&] { return ends_ == 1; }));
    EXPECT_THAT(portal_->activationTokens, ElementsAre("of the launch"));
}

TEST_F(PortalOpenerTest, AFileOrFolderIsGivenAsADescriptor) {
    startPortal(FakePortal::Behaviour::responds);
    const test::TemporaryDirectory folder;
    const std::string file = folder.write("a b.html", "x");
    open("file://" + folder.path() + "/a%20b.html");
    open("file://" + folder.path());
    ASSERT_TRUE(waitUntil([&] { return portal_->opened.size() == 2; }));
    EXPECT_THAT(portal_->opened, ElementsAre("OpenFile " + file, "OpenFile " + folder.path()));
    roundTrip();
    EXPECT_EQ(fallbacks_, 0);
}

TEST_F(PortalOpenerTest, AUserWhoRefusesIsNoFailure) {
    startPortal(FakePortal::Behaviour::responds).response = 1;
    open("https://example.com/");
    ASSERT_TRUE(waitUntil([&] { return !portal_->opened.empty(); }));
    roundTrip();
    EXPECT_EQ(fallbacks_, 0);
}

TEST_F(PortalOpenerTest, WhatThePortalCannotOpenIsOpenedOtherwiseOnce) {
    const auto check = [&](const char* what) {
        fallbacks_ = 0;
        open("https://example.com/");
        EXPECT_TRUE(waitUntil([&] { return fallbacks_ > 0; })) << what;
        roundTrip();
        EXPECT_EQ(fallbacks_, 1) << what;
    };
    check("no portal");
    startPortal(FakePortal::Behaviour::responds).response = 2;
    check("another end");
    portal_->die();
    startPortal(FakePortal::Behaviour::respondsFirst).response = 2;
    check("another end, before the call returned");
    portal_->die();
    startPortal(FakePortal::Behaviour::refuses);
    check("a refusal");
    portal_->die();
    startPortal(FakePortal::Behaviour::diesLater);
    check("a death");
}

TEST_F(PortalOpenerTest, AFileThatIsMissingIsOpenedOtherwise) {
    startPortal(FakePortal::Behaviour::responds);
    open("file:///no/such/file");
    EXPECT_EQ(fallbacks_, 1);
    EXPECT_THAT(portal_->opened, ElementsAre());
}

TEST_F(PortalOpenerTest, ALostBusIsAFailure) {
    startPortal(FakePortal::Behaviour::isSilent);
    open("https://example.com/");
    ASSERT_TRUE(waitUntil([&] { return !portal_->opened.empty(); }));
    daemon_.stop();
    EXPECT_TRUE(waitUntil([&] { return fallbacks_ == 1; }));
}

}  // namespace
}  // namespace glintmark::platform
