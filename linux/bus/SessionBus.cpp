#include "linux/bus/SessionBus.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <future>
#include <memory>
#include <utility>

#include "linux/bus/DBusCall.h"
#include "linux/queues/Thread.h"
#include "linux/queues/CoalescedTimeout.h"

namespace glintmark::platform {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds firstPause{250};
constexpr milliseconds longestPause{60'000};
constexpr int growth = 3;  // of the pause, from one try to the next
constexpr int nameTimeoutMilliseconds = 5000;
constexpr std::size_t flushStackBytes = std::size_t{64} * 1024;

constexpr DBusTarget busDaemon{"org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus"};

// The codes of RequestName in the D-Bus specification, "org.freedesktop.DBus.RequestName".
constexpr guint doNotQueue = 4;
constexpr guint primaryOwner = 1;
constexpr guint alreadyOwner = 4;

/// Without an address GLib would start a bus of its own for the display, which no one else is on.
bool busIsExpected() {
    const char* address = g_getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address != nullptr && *address != '\0') {
        return true;
    }
    const char* runtime = g_getenv("XDG_RUNTIME_DIR");
    return runtime != nullptr &&
           g_file_test((std::string(runtime) + "/bus").c_str(), G_FILE_TEST_EXISTS) != FALSE;
}

/// Keeps GLib from ending the process when a connection that it shares is lost. Done for all of
/// them, and at the last moment, since modules of GIO open some, and one can be lost while it is
/// still being made.
void surviveLostConnections() {
    static const gulong hook = [] {
        const auto keepRunning = [](GSignalInvocationHint*, guint, const GValue* values,
                                    gpointer) -> gboolean {
            g_dbus_connection_set_exit_on_close(
                static_cast<GDBusConnection*>(g_value_get_object(values)), FALSE);
            constexpr gboolean stayInstalled = TRUE;
            return stayInstalled;
        };
        g_type_class_ref(g_dbus_connection_get_type());  // makes the signal; kept for ever
        return g_signal_add_emission_hook(g_signal_lookup("closed", g_dbus_connection_get_type()),
                                          0, keepRunning, nullptr, nullptr);
    }();
    static_cast<void>(hook);
}

GVariant* nameRequest() { return g_variant_new("(su)", SessionBus::programName, doNotQueue); }

NameOwnership ownershipFrom(GVariant* reply) {
    guint code = 0;
    g_variant_get(reply, "(u)", &code);
    return code == primaryOwner || code == alreadyOwner ? NameOwnership::owned
                                                        : NameOwnership::takenByAnother;
}

/// Whether the process that leads this one's session, see setsid(2), has ended: at a login that is
/// the desktop's session manager or what has started it. The system gives its number to no other
/// process while this one lives.
bool isSessionLeaderGone() {
    const pid_t leader = ::getsid(0);  // 0: it lies outside this process's namespace
    return leader > 0 && ::kill(leader, 0) != 0 && errno == ESRCH;
}

}  // namespace

SessionBus::SessionBus(milliseconds patience)
    : cancellable_(g_cancellable_new()), pause_(firstPause) {
    surviveLostConnections();
    open();
    bool late = false;
    const auto becomeLate = [](gpointer flag) -> gboolean {
        *static_cast<bool*>(flag) = true;
        return G_SOURCE_CONTINUE;
    };
    const GSourceId limit(g_timeout_add(static_cast<guint>(patience.count()), becomeLate, &late));
    while (opening_ && !late) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

SessionBus::~SessionBus() {
    g_cancellable_cancel(cancellable_.get());
    release();
}

void SessionBus::open() {
    if (!busIsExpected()) {
        retryLater();
        return;
    }
    opening_ = true;
    // The connection that GIO's own modules share.
    g_bus_get(
        G_BUS_TYPE_SESSION, cancellable_.get(),
        [](GObject* /*source*/, GAsyncResult* result, gpointer self) {
            GErrorOut error;
            GObjectHandle<GDBusConnection> connection(g_bus_get_finish(result, error.out()));
            if (isCancelled(error.get())) {
                return;
            }
            if (connection != nullptr && g_dbus_connection_is_closed(connection.get()) != FALSE) {
                static_cast<SessionBus*>(self)->openPrivately();
                return;
            }
            static_cast<SessionBus*>(self)->opened(std::move(connection));
        },
        this);
}

/// GLib keeps handing out the shared connection, dead as it is, while anyone holds it.
void SessionBus::openPrivately() {
    const GStringHandle address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    if (address == nullptr) {
        opened(nullptr);
        return;
    }
    constexpr auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_dbus_connection_new_for_address(
        address.get(), flags, nullptr, cancellable_.get(),
        [](GObject* /*source*/, GAsyncResult* result, gpointer self) {
            GErrorOut error;
            GObjectHandle<GDBusConnection> connection(
                g_dbus_connection_new_for_address_finish(result, error.out()));
            if (!isCancelled(error.get())) {
                static_cast<SessionBus*>(self)->opened(std::move(connection));
            }
        },
        this);
}

void SessionBus::opened(GObjectHandle<GDBusConnection> connection) {
    opening_ = false;
    if (connection == nullptr || g_dbus_connection_is_closed(connection.get()) != FALSE) {
        retryLater();
        return;
    }
    pause_ = firstPause;
    connection_ = std::move(connection);
    const auto closed = [](GDBusConnection* /*connection*/, gboolean /*remotely*/,
                           GError* /*error*/,
                           gpointer self) { static_cast<SessionBus*>(self)->lost(); };
    closedHandler_ = g_signal_connect(connection_.get(), "closed", G_CALLBACK(+closed), this);
    wasLed_ = !isSessionLeaderGone();
    if (wantsName_) {
        requestName();
    }
    notify();
}

void SessionBus::requestName() {
    callDBus(connection_.get(), busDaemon, "RequestName", nameRequest(), "(u)",
             nameTimeoutMilliseconds, cancellable_.get(),
             [this](GVariant* reply, const GError* /*error*/) {
                 if (reply != nullptr && ownershipFrom(reply) == NameOwnership::takenByAnother) {
                     end(End::nameIsTaken);
                 }
             });
}

void SessionBus::lost() {
    release();
    notify();
    retryLater();
}

void SessionBus::release() {
    if (connection_ != nullptr) {
        g_signal_handler_disconnect(connection_.get(), closedHandler_);
        connection_.reset();
    }
}

void SessionBus::retryLater() {
    const auto retry = [](gpointer data) -> gboolean {
        auto* self = static_cast<SessionBus*>(data);
        self->retry_.forget();
        self->retry();
        return G_SOURCE_REMOVE;
    };
    retry_ = GSourceId(addCoalescedTimeout(pause_, retry, this));
    pause_ = std::min(pause_ * growth, longestPause);
}

/// A desktop's end, unlike that of a terminal, is told by no signal. Its bus ends with it unless
/// that belongs to the user's systemd.
void SessionBus::retry() {
    if (wasLed_ && isSessionLeaderGone()) {
        end(End::sessionIsOver);
    }
    open();
}

/// On a thread that can be left behind: GLib's flush takes no time limit.
void SessionBus::flush(milliseconds patience) const {
    if (connection_ == nullptr) {
        return;
    }
    const auto flushed = std::make_shared<std::promise<void>>();
    const std::shared_ptr<GDBusConnection> connection = shareGObject(connection_.get());
    const bool started = Thread::startDetached("flush", flushStackBytes, [flushed, connection] {
        g_dbus_connection_flush_sync(connection.get(), nullptr, nullptr);
        flushed->set_value();
    });
    if (started) {
        flushed->get_future().wait_for(patience);
    }
}

void SessionBus::end(End why) const {
    if (endHandler_) {
        endHandler_(why);
    }
}

SessionBus::Subscription SessionBus::observe(Observer observer) {
    auto subscription = std::make_shared<const Observer>(std::move(observer));
    observers_.push_back(subscription);
    if (connection_ != nullptr) {
        (*subscription)(connection_.get());
    }
    return subscription;
}

void SessionBus::notify() {
    std::erase_if(observers_, [](const auto& observer) { return observer.expired(); });
    const auto observers = observers_;  // an observer may add another
    for (const auto& observer : observers) {
        if (const auto subscription = observer.lock()) {
            (*subscription)(connection_.get());
        }
    }
}

NameOwnership SessionBus::acquireName() {
    wantsName_ = true;
    if (connection_ == nullptr) {
        return NameOwnership::noBus;
    }
    const GVariantHandle reply(g_dbus_connection_call_sync(
        connection_.get(), busDaemon.name, busDaemon.path, busDaemon.interface, "RequestName",
        nameRequest(), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, nameTimeoutMilliseconds,
        nullptr, nullptr));
    if (reply == nullptr) {
        return NameOwnership::noBus;
    }
    return ownershipFrom(reply.get());
}

}  // namespace glintmark::platform
