#include <gio/gunixsocketaddress.h>
#include <gtest/gtest.h>

#include <cstring>

#include "linux/bus/SessionBus.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;

TEST(SessionBusTest, ConnectsAtOnceAndCallsANewObserverAtOnce) {
    PrivateBus daemon;
    SessionBus bus;
    ASSERT_NE(bus.connection(), nullptr);
    GDBusConnection* seen = nullptr;
    const auto subscription = bus.observe([&](GDBusConnection* connection) { seen = connection; });
    EXPECT_EQ(seen, bus.connection());
}

TEST(SessionBusTest, WithoutABusThereIsNoConnectionAndNoWaiting) {
    const PrivateBus daemon(PrivateBus::Begin::stopped);
    SessionBus bus;
    EXPECT_EQ(bus.connection(), nullptr);
    EXPECT_EQ(bus.acquireName(), NameOwnership::noBus);
    bus.flush(1h);
    bool called = false;
    const auto subscription = bus.observe([&](GDBusConnection*) { called = true; });
    EXPECT_FALSE(called);
}

TEST(SessionBusTest, WithoutAnAddressNoBusIsStarted) {
    const PrivateBus daemon(PrivateBus::Begin::stopped);
    const std::string runtime = g_getenv("XDG_RUNTIME_DIR") ? g_getenv("XDG_RUNTIME_DIR") : "";
    g_unsetenv("DBUS_SESSION_BUS_ADDRESS");
    g_setenv("XDG_RUNTIME_DIR", daemon.folder().c_str(), TRUE);
    const SessionBus bus;
    EXPECT_EQ(bus.connection(), nullptr);
    if (runtime.empty()) {
        g_unsetenv("XDG_RUNTIME_DIR");
    } else {
        g_setenv("XDG_RUNTIME_DIR", runtime.c_str(), TRUE);
    }
}

TEST(SessionBusTest, ConnectsToABusThatAppearsLater) {
    PrivateBus daemon(PrivateBus::Begin::stopped);
    SessionBus bus;
    GDBusConnection* seen = nullptr;
    const auto subscription = bus.observe([&](GDBusConnection* connection) { seen = connection; });
    daemon.start();
    ASSERT_TRUE(waitUntil([&] { return seen != nullptr; }));
    EXPECT_EQ(seen, bus.connection());
}

TEST(SessionBusTest, ReconnectsToABusThatRestarts) {
    PrivateBus daemon;
    SessionBus bus;
    std::vector<bool> changes;
    const auto subscription =
        bus.observe([&](GDBusConnection* connection) { changes.push_back(connection != nullptr); });
    daemon.stop(bus);
    daemon.start();
    ASSERT_TRUE(waitUntil([&] { return bus.connection() != nullptr; }));
    EXPECT_EQ(changes, (std::vector<bool>{true, false, true}));
}

TEST(SessionBusTest, ReconnectsWhileAnotherModuleHoldsTheClosedConnection) {
    PrivateBus daemon;
    SessionBus bus;
    const auto held = shareGObject(bus.connection());
    daemon.stop(bus);
    daemon.start();
    ASSERT_TRUE(waitUntil([&] { return bus.connection() != nullptr; }));
    EXPECT_NE(bus.connection(), held.get());
    EXPECT_FALSE(g_dbus_connection_is_closed(bus.connection()));
}

TEST(SessionBusTest, LosingAConnectionOfAnotherModuleDoesNotEndTheProcess) {
    PrivateBus daemon;
    const SessionBus bus;
    const auto other = daemon.connect();
    g_dbus_connection_set_exit_on_close(other.get(), TRUE);  // as GLib does for shared ones
    bool closed = false;
    const auto note = [](GDBusConnection*, gboolean, GError*, gpointer flag) {
        *static_cast<bool*>(flag) = true;
    };
    g_signal_connect(other.get(), "closed", G_CALLBACK(+note), &closed);
    daemon.stop();
    EXPECT_TRUE(waitUntil([&] { return closed; }));
}

TEST(SessionBusTest, AnEndedSubscriptionIsNotCalled) {
    PrivateBus daemon;
    SessionBus bus;
    int calls = 0;
    auto subscription = bus.observe([&](GDBusConnection*) { ++calls; });
    subscription.reset();
    daemon.stop(bus);
    EXPECT_EQ(calls, 1);
}

TEST(SessionBusTest, TheNameIsOwnedByOneProcessOfTheSession) {
    PrivateBus daemon;
    SessionBus bus;
    EXPECT_EQ(bus.acquireName(), NameOwnership::owned);
    EXPECT_EQ(bus.acquireName(), NameOwnership::owned);
    EXPECT_EQ(FakePeer(daemon).ownerOf(SessionBus::programName),
              g_dbus_connection_get_unique_name(bus.connection()));
}

TEST(SessionBusTest, ANameThatAnotherOwnsIsNotTaken) {
    PrivateBus daemon;
    FakePeer other(daemon);
    other.ownName(SessionBus::programName);
    SessionBus bus;
    EXPECT_EQ(bus.acquireName(), NameOwnership::takenByAnother);
}

TEST(SessionBusTest, ANameThatAnotherTookBeforeTheReconnectionIsReported) {
    PrivateBus daemon;
    SessionBus bus;
    ASSERT_EQ(bus.acquireName(), NameOwnership::owned);
    std::vector<SessionBus::End> ends;
    bus.setEndHandler([&](SessionBus::End why) { ends.push_back(why); });
    daemon.stop(bus);
    daemon.start();
    FakePeer other(daemon);
    other.ownName(SessionBus::programName);
    ASSERT_TRUE(waitUntil([&] { return !ends.empty(); }));
    EXPECT_EQ(ends, std::vector{SessionBus::End::nameIsTaken});
}

TEST(SessionBusTest, TheNameIsRequestedAgainOnTheNextConnection) {
    PrivateBus daemon;
    SessionBus bus;
    ASSERT_EQ(bus.acquireName(), NameOwnership::owned);
    daemon.stop(bus);
    daemon.start();
    ASSERT_TRUE(waitUntil([&] { return bus.connection() != nullptr; }));
    const FakePeer other(daemon);
    EXPECT_TRUE(waitUntil([&] { return !other.ownerOf(SessionBus::programName).empty(); }));
}

constexpr std::size_t largeSignals = 16;

/// More bytes than the socket takes at once.
void emitLargeSignals(GDBusConnection* connection) {
    const std::string text(std::size_t{1} << 20, 'x');
    for (std::size_t i = 0; i < largeSignals; ++i) {
        g_dbus_connection_emit_signal(connection, nullptr, "/", "org.example.Test", "Said",
                                      g_variant_new("(s)", text.c_str()), nullptr);
    }
}

TEST(SessionBusTest, FlushedSignalsArriveEvenIfTheConnectionIsCutAfterwards) {
    PrivateBus daemon;
    const SessionBus bus;
    FakePeer listener(daemon);
    listener.listen("org.example.Test");
    emitLargeSignals(bus.connection());
    bus.flush(20s);
    g_socket_shutdown(g_socket_connection_get_socket(
                          G_SOCKET_CONNECTION(g_dbus_connection_get_stream(bus.connection()))),
                      FALSE, TRUE, nullptr);
    EXPECT_TRUE(waitUntil([&] { return listener.signals().size() == largeSignals; }));
}

TEST(SessionBusTest, ABusThatReadsNothingBlocksAFlushOnlyForItsTimeout) {
    PrivateBus daemon;
    const SessionBus bus;
    daemon.pause();
    emitLargeSignals(bus.connection());
    const auto start = std::chrono::steady_clock::now();
    bus.flush(50ms);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);  // it waited and returned
}

/// Accepts connections and never sends a byte.
class SilentBus {
public:
    SilentBus() {
        const GStringHandle folder(g_dir_make_tmp("glintmark-bus-XXXXXX", nullptr));
        path_ = std::string(folder.get()) + "/bus";
        listener_.reset(g_socket_listener_new());
        const GObjectHandle<GSocketAddress> address(g_unix_socket_address_new(path_.c_str()));
        g_socket_listener_add_address(listener_.get(), address.get(), G_SOCKET_TYPE_STREAM,
                                      G_SOCKET_PROTOCOL_DEFAULT, nullptr, nullptr, nullptr);
        g_setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + path_).c_str(), TRUE);
    }
    ~SilentBus() {
        g_socket_listener_close(listener_.get());
        std::remove(path_.c_str());
        std::remove(path_.substr(0, path_.size() - std::strlen("/bus")).c_str());
        g_unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }

private:
    std::string path_;
    GObjectHandle<GSocketListener> listener_;
};

TEST(SessionBusTest, ASilentBusBlocksTheStartOnlyForItsTimeout) {
    const SilentBus daemon;
    const auto start = std::chrono::steady_clock::now();
    const SessionBus bus(50ms);
    EXPECT_EQ(bus.connection(), nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
}

}  // namespace
}  // namespace glintmark::platform
