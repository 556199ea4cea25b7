#include "linux/bus/SessionBus.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <future>
#include <memory>
#include <utility>

#include "linux/bus/DBusCall.h"
#include "linux/bus/LoginSession.h"
#include "linux/queues/CoalescedTimeout.h"
#include "linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds firstPause{250};
constexpr milliseconds maximumPause{60'000};
constexpr int pauseGrowth = 3;
constexpr int nameTimeoutMilliseconds = 5000;
constexpr std::size_t flushStackBytes = std::size_t{64} * 1024;

constexpr DBusTarget busDaemon{"org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus"};

// Flags and results of RequestName in the D-Bus specification.
constexpr guint doNotQueue = 4;
constexpr guint primaryOwner = 1;
constexpr guint alreadyOwner = 4;

/// False if the environment names no session bus. GLib would then start a bus for the display, to
/// which no other program is connected.
bool isBusExpected() {
    const char* address = g_getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address != nullptr && *address != '\0') {
        return true;
    }
    const char* runtime = g_getenv("XDG_RUNTIME_DIR");
    return runtime != nullptr &&
           g_file_test((std::string(runtime) + "/bus").c_str(), G_FILE_TEST_EXISTS) != FALSE;
}

/// Keeps GLib from ending the process when a shared connection is lost. The hook applies to every
/// connection, because modules of GIO open connections, too. It runs when a connection closes,
/// because a connection can be lost before any code has received it.
void surviveLostConnections() {
    static const gulong hook = [] {
        const auto keepRunning = [](GSignalInvocationHint*, guint, const GValue* values,
                                    gpointer) -> gboolean {
            g_dbus_connection_set_exit_on_close(
                static_cast<GDBusConnection*>(g_value_get_object(values)), FALSE);
            constexpr gboolean stayInstalled = TRUE;
            return stayInstalled;
        };
        g_type_class_ref(g_dbus_connection_get_type());  // registers the signal; never released
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

}  // namespace

bool SessionBus::isSessionLeaderGone() {
    const pid_t leader = ::getsid(0);  // 0 if it is in another PID namespace
    return leader > 0 && ::kill(leader, 0) != 0 && errno == ESRCH;
}

SessionBus::SessionBus(milliseconds timeout, bool (*isLeaderGone)())
    : cancellable_(g_cancellable_new()), pause_(firstPause), isLeaderGone_(isLeaderGone) {
    surviveLostConnections();
    open();
    bool timedOut = false;
    const auto timeOut = [](gpointer flag) -> gboolean {
        *static_cast<bool*>(flag) = true;
        return G_SOURCE_CONTINUE;
    };
    const GSourceId timer(g_timeout_add(static_cast<guint>(timeout.count()), timeOut, &timedOut));
    while (opening_ && !timedOut) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

SessionBus::~SessionBus() {
    g_cancellable_cancel(cancellable_.get());
    release();
}

void SessionBus::open() {
    if (!isBusExpected()) {
        retryLater();
        return;
    }
    opening_ = true;
    // The modules of GIO share this connection.
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

/// Opens a connection that is not shared. GLib returns the closed shared connection as long as any
/// module holds it.
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
    hadSessionLeader_ = !isLeaderGone_();
    notify();  // first, so that whoever calls the name finds the objects
    if (wantsName_) {
        requestName();
    }
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
    pause_ = std::min(pause_ * pauseGrowth, maximumPause);
}

/// Unlike a terminal, a desktop that ends sends no signal to its programs. Its bus ends with it,
/// unless the bus belongs to the user's systemd. The leader may also be a terminal that was closed
/// (`nohup glintmark &`), and the bus may have failed alone; the login manager knows.
void SessionBus::retry() {
    if (hadSessionLeader_ && isLeaderGone_() && !isAsking_) {
        isAsking_ = true;
        askLoginSession(cancellable_.get(), [this](LoginSession session) {
            isAsking_ = false;
            const bool isOver = session == LoginSession::over || session == LoginSession::noManager;
            if (isOver && connection_ == nullptr) {
                end(End::sessionIsOver);
            }
        });
    }
    open();
}

/// Flushes on a detached thread, which may outlive the call, because GLib's flush has no timeout.
void SessionBus::flush(milliseconds timeout) const {
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
        flushed->get_future().wait_for(timeout);
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
    const auto observers = observers_;  // an observer may add one
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
