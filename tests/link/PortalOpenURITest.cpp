#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "link/PortalOpenURI.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"

namespace glintmark::link {
namespace {

using namespace std::chrono_literals;
using platform::FakePeer;
using platform::PrivateBus;
using testing::ElementsAre;
using testing::MatchesRegex;

constexpr auto name = "org.freedesktop.portal.Desktop";
constexpr auto path = "/org/freedesktop/portal/desktop";
constexpr auto xml = R"(<node><interface name="org.freedesktop.portal.OpenURI">
  <method name="OpenURI"><arg type="s" direction="in"/><arg type="s" direction="in"/>
  <arg type="a{sv}" direction="in"/><arg type="o" direction="out"/></method>
</interface></node>)";

/// A portal that answers each request with `response`; with none if it is negative.
class FakePortal {
public:
    FakePortal(const PrivateBus& bus, int response) : peer_(bus), response_(response) {
        peer_.offer(path, xml,
                    [this](const std::string&, GVariant* arguments,
                           GDBusMethodInvocation* invocation) { handle(arguments, invocation); });
        peer_.ownName(name);
    }

    void handle(GVariant* arguments, GDBusMethodInvocation* invocation) {
        const char* parent = nullptr;
        const char* uri = nullptr;
        GVariant* options = nullptr;
        g_variant_get(arguments, "(&s&s@a{sv})", &parent, &uri, &options);
        const platform::GVariantHandle owner(options);
        const char* token = "";
        g_variant_lookup(options, "handle_token", "&s", &token);
        uris.emplace_back(uri);
        tokens.insert(token);
        std::string sender = g_dbus_method_invocation_get_sender(invocation) + 1;
        std::replace(sender.begin(), sender.end(), '.', '_');
        const std::string handle = hasOwnHandles
                                       ? std::string(path) + "/request/own"
                                       : std::string(path) + "/request/" + sender + "/" + token;
        const auto respond = [&] {
            if (response_ >= 0) {
                g_dbus_connection_emit_signal(
                    peer_.connection(), g_dbus_method_invocation_get_sender(invocation),
                    handle.c_str(), "org.freedesktop.portal.Request", "Response",
                    g_variant_new("(ua{sv})", static_cast<guint>(response_), nullptr), nullptr);
            }
        };
        if (isEarly) {
            respond();
        }
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", handle.c_str()));
        if (!isEarly) {
            respond();
        }
    }

    std::vector<std::string> uris;
    std::set<std::string> tokens;
    bool isEarly = false;
    bool hasOwnHandles = false;

private:
    FakePeer peer_;
    int response_;
};

TEST(PortalOpenURITest, ThePortalOpensTheAddress) {
    const PrivateBus bus;
    const auto connection = bus.connect();
    FakePortal portal(bus, 0);
    EXPECT_EQ(openThroughPortal(connection.get(), "https://h/a"), PortalAnswer::opened);
    EXPECT_EQ(openThroughPortal(connection.get(), "https://h/b"), PortalAnswer::opened);
    EXPECT_THAT(portal.uris, ElementsAre("https://h/a", "https://h/b"));
    EXPECT_EQ(portal.tokens.size(), 2U) << "each request has a token of its own";
    for (const auto& token : portal.tokens) {
        EXPECT_THAT(token, MatchesRegex("glintmark_[0-9A-F_]{36}"));
    }
}

TEST(PortalOpenURITest, AResponseMayComeBeforeTheReplyAndUnderAnotherHandle) {
    const PrivateBus bus;
    const auto connection = bus.connect();
    FakePortal portal(bus, 0);
    portal.isEarly = true;
    EXPECT_EQ(openThroughPortal(connection.get(), "https://h/"), PortalAnswer::opened);
    portal.hasOwnHandles = true;
    EXPECT_EQ(openThroughPortal(connection.get(), "https://h/"), PortalAnswer::opened);
}

TEST(PortalOpenURITest, TheUserMayCancel) {
    const PrivateBus bus;
    const auto connection = bus.connect();
    const FakePortal portal(bus, 1);
    EXPECT_EQ(openThroughPortal(connection.get(), "https://h/"), PortalAnswer::cancelled);
}

TEST(PortalOpenURITest, APortalThatCannotOpenItIsUnavailable) {
    const PrivateBus bus;
    const auto connection = bus.connect();
    const FakePortal portal(bus, 2);
    EXPECT_EQ(openThroughPortal(connection.get(), "https://h/"), PortalAnswer::unavailable);
}

TEST(PortalOpenURITest, WithoutAPortalOrABusItIsUnavailable) {
    EXPECT_EQ(openThroughPortal(nullptr, "https://h/"), PortalAnswer::unavailable);
    const PrivateBus bus;
    const auto connection = bus.connect();
    EXPECT_EQ(openThroughPortal(connection.get(), "https://h/"), PortalAnswer::unavailable);
}

TEST(PortalOpenURITest, TheWaitForAResponseIsLimited) {
    const PrivateBus bus;
    const auto connection = bus.connect();
    FakePortal portal(bus, -1);
    EXPECT_EQ(openThroughPortal(connection.get(), "https://h/", {.answer = 50ms}),
              PortalAnswer::opened);
    EXPECT_THAT(portal.uris, ElementsAre("https://h/"));
}

}  // namespace
}  // namespace glintmark::link
