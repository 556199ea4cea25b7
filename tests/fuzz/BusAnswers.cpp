#include <array>
#include <deque>
#include <mutex>
#include <string>

#include "linux/bus/DBusCall.h"
#include "linux/notifications/FreedesktopNotifications.h"
#include "linux/panel/PortalFileChooser.h"
#include "linux/statusitem/StatusNotifierItem.h"
#include "tests/fuzz/DBusValues.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using namespace platform;

namespace {

constexpr auto busName = "org.freedesktop.DBus";
constexpr auto peerName = ":1.2";  // owns every name that is asked for
constexpr auto ping = "Ping";

/// Plays the session bus and every peer on it. The bus keeps to its protocol. The peers answer with
/// the fuzzer's input, and with a correct answer when the input is used up.
class FuzzedBus {
public:
    FuzzedBus() {
        const GStringHandle guid(g_dbus_generate_guid());
        server_.reset(g_dbus_server_new_sync("unix:tmpdir=/tmp", G_DBUS_SERVER_FLAGS_RUN_IN_THREAD,
                                             guid.get(), nullptr, nullptr, nullptr));
        fuzz::require(server_ != nullptr);
        const auto connected = [](GDBusServer*, GDBusConnection* connection,
                                  gpointer self) -> gboolean {
            static_cast<FuzzedBus*>(self)->take(connection);
            return TRUE;
        };
        g_signal_connect(
            server_.get(), "new-connection",
            G_CALLBACK(
                static_cast<gboolean (*)(GDBusServer*, GDBusConnection*, gpointer)>(connected)),
            this);
        g_dbus_server_start(server_.get());
        g_setenv("DBUS_SESSION_BUS_ADDRESS", g_dbus_server_get_client_address(server_.get()), TRUE);
    }

    /// Sets what the peers answer from now on, in this order.
    void setAnswers(std::deque<GVariantHandle> answers) {
        const std::scoped_lock lock(mutex_);
        answers_ = std::move(answers);
    }

    /// Where the response to the last request to the portal is expected.
    std::string requestPath() {
        const std::scoped_lock lock(mutex_);
        return "/org/freedesktop/portal/desktop/request/1_1/" + token_;
    }

    void emit(const char* path, const char* interface, const char* signal, GVariant* body) const {
        const GObjectHandle<GDBusMessage> message(
            g_dbus_message_new_signal(path, interface, signal));
        g_dbus_message_set_sender(message.get(), peerName);
        g_dbus_message_set_body(message.get(), body);
        send(message.get());
    }

private:
    void take(GDBusConnection* connection) {
        connection_ = shareGObject(connection);
        const auto received = [](GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                 gpointer self) -> GDBusMessage* {
            if (incoming == FALSE) {
                return message;
            }
            static_cast<FuzzedBus*>(self)->answer(message);
            g_object_unref(message);
            return nullptr;
        };
        g_dbus_connection_add_filter(connection, received, this, nullptr);
    }

    void answer(GDBusMessage* call) {
        constexpr auto unwanted = G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED;
        if (g_dbus_message_get_message_type(call) != G_DBUS_MESSAGE_TYPE_METHOD_CALL ||
            (g_dbus_message_get_flags(call) & unwanted) != 0) {
            return;
        }
        noteToken(g_dbus_message_get_body(call));
        const bool isForBus = g_strcmp0(g_dbus_message_get_destination(call), busName) == 0;
        const GObjectHandle<GDBusMessage> reply(g_dbus_message_new_method_reply(call));
        g_dbus_message_set_sender(reply.get(), isForBus ? busName : peerName);
        const std::string method = g_dbus_message_get_member(call);
        if (const auto body = isForBus ? busAnswer(method) : peerAnswer(method)) {
            g_dbus_message_set_body(reply.get(), body.get());
        }
        send(reply.get());
    }

    void noteToken(GVariant* arguments) {
        if (arguments == nullptr ||
            g_variant_is_of_type(arguments, G_VARIANT_TYPE("(ssa{sv})")) == FALSE) {
            return;
        }
        const GVariantHandle options(g_variant_get_child_value(arguments, 2));
        const char* token = "none";
        g_variant_lookup(options.get(), "handle_token", "&s", &token);
        const std::scoped_lock lock(mutex_);
        token_ = token;
    }

    static GVariantHandle busAnswer(const std::string& method) {
        if (method == "Hello") {
            return GVariantHandle(g_variant_ref_sink(g_variant_new("(s)", ":1.1")));
        }
        if (method == "GetNameOwner") {
            return GVariantHandle(g_variant_ref_sink(g_variant_new("(s)", peerName)));
        }
        if (method == "StartServiceByName") {
            return GVariantHandle(g_variant_ref_sink(g_variant_new("(u)", 2U)));
        }
        return nullptr;
    }

    GVariantHandle peerAnswer(const std::string& method) {
        const std::scoped_lock lock(mutex_);
        if (method == ping || answers_.empty()) {
            return nullptr;
        }
        GVariantHandle body = std::move(answers_.front());
        answers_.pop_front();
        return body;
    }

    void send(GDBusMessage* message) const {
        g_dbus_connection_send_message(connection_.get(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
    }

    GObjectHandle<GDBusServer> server_;
    GObjectHandle<GDBusConnection> connection_;
    std::mutex mutex_;  ///< Guards what follows.
    std::deque<GVariantHandle> answers_;
    std::string token_ = "none";
};

/// Returns when every pending call has been answered and the program has read the answers.
void settle(GDBusConnection* connection) {
    constexpr int longestChain = 3;  // of calls that follow from each other's answers
    constexpr DBusTarget peer{peerName, "/", "org.freedesktop.DBus.Peer"};
    for (int i = 0; i < longestChain; ++i) {
        bool answered = false;
        callDBus(connection, peer, ping, nullptr, "()", G_MAXINT, nullptr,
                 [&](GVariant*, const GError*) { answered = true; });
        while (!answered) {
            g_main_context_iteration(nullptr, TRUE);
        }
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
    }
}

std::deque<GVariantHandle> answersOf(fuzz::Pieces& pieces, std::span<const char* const> types) {
    std::deque<GVariantHandle> answers;
    for (const char* const type : types) {
        answers.push_back(pieces.tuple(type));
    }
    return answers;
}

void openPanel(FuzzedBus& bus, const SessionBus& session, fuzz::Pieces& pieces) {
    constexpr std::array types{"(v)", "(o)"};
    bus.setAnswers(answersOf(pieces, types));
    int results = 0;
    {
        OpenPanel::Settings settings;
        settings.canChooseDirectories = true;
        const PortalFileChooser chooser(
            session.connection(), settings, [&](const std::optional<OpenPanel::Result>& result) {
                ++results;
                const bool chosen = result && result->response == ModalResponse::ok;
                fuzz::require(chosen || !result || !result->path);
            });
        settle(session.connection());
        bus.emit(bus.requestPath().c_str(), "org.freedesktop.portal.Request", "Response",
                 pieces.tuple("(ua{sv})").get());
        settle(session.connection());
    }
    fuzz::require(results == 1);
}

void notify(FuzzedBus& bus, SessionBus& session, fuzz::Pieces& pieces) {
    constexpr std::array types{"(ssss)", "(as)", "(u)"};
    bus.setAnswers(answersOf(pieces, types));
    int results = 0;
    {
        FreedesktopNotifications notifications(session, "glintmark");
        notifications.requestAuthorization(
            0, [&](bool granted, const std::optional<std::string>& error) {
                ++results;
                fuzz::require(granted == !error);
            });
        notifications.add({"a", "Title", "<b>\xFF"},
                          [&](const std::optional<std::string>&) { ++results; });
        while (results < 2) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }
    settle(session.connection());
    fuzz::require(results == 2);
}

void registerItem(FuzzedBus& bus, SessionBus& session, fuzz::Pieces& pieces) {
    constexpr std::array types{"()", "(v)", "()"};
    bus.setAnswers(answersOf(pieces, types));
    const StatusNotifierItem item(session, "/nonexistent");
    settle(session.connection());
    bus.emit("/StatusNotifierWatcher", "org.kde.StatusNotifierWatcher",
             "StatusNotifierHostRegistered", pieces.tuple("()").get());
    settle(session.connection());
}

}  // namespace

/// Rule: whatever the portal, notification server and watcher answer, each request ends exactly
/// once.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static FuzzedBus bus;
    static SessionBus session;
    fuzz::require(session.connection() != nullptr);
    fuzz::endOnWarnings();
    fuzz::Pieces pieces({data, size});
    switch (pieces.number() % 3) {
        case 0:
            openPanel(bus, session, pieces);
            break;
        case 1:
            notify(bus, session, pieces);
            break;
        default:
            registerItem(bus, session, pieces);
    }
    return 0;
}
