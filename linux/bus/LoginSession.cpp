#include "linux/bus/LoginSession.h"

#include <unistd.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "linux/bus/DBusCall.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

namespace {

constexpr int timeoutMilliseconds = 5000;
constexpr auto managerName = "org.freedesktop.login1";
constexpr DBusTarget manager{managerName, "/org/freedesktop/login1",
                             "org.freedesktop.login1.Manager"};
constexpr auto sessionInterface = "org.freedesktop.login1.Session";
constexpr auto userInterface = "org.freedesktop.login1.User";
constexpr guint32 ownProcess = 0;  // the manager takes it for the caller

/// One question, which its pending call keeps alive.
class Question : public std::enable_shared_from_this<Question> {
public:
    Question(GCancellable* cancellable, std::function<void(LoginSession)> answer)
        : cancellable_(shareGObject(cancellable)), answer_(std::move(answer)) {}

    void connect();

private:
    void ask();
    void askForUser();
    void find(const char* method, GVariant* arguments, const char* interface);
    void readState(const std::string& object, const char* interface);
    void fail(const GError* error);

    GObjectHandle<GCancellable> cancellable_;
    std::function<void(LoginSession)> answer_;
    GObjectHandle<GDBusConnection> connection_;
};

/// Opens a connection of its own: there is hardly ever a second question.
void Question::connect() {
    const GStringHandle address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    if (address == nullptr) {
        return answer_(LoginSession::noManager);
    }
    constexpr auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    const auto opened = [](GObject* /*source*/, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<std::shared_ptr<Question>> self(
            static_cast<std::shared_ptr<Question>*>(data));
        GErrorOut error;
        GObjectHandle<GDBusConnection> connection(
            g_dbus_connection_new_for_address_finish(result, error.out()));
        if (isCancelled(error.get())) {
            return;
        }
        if (connection == nullptr) {
            (*self)->answer_(LoginSession::noManager);
            return;
        }
        (*self)->connection_ = std::move(connection);
        (*self)->ask();
    };
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): the callback owns it
    auto* const self = new std::shared_ptr<Question>(shared_from_this());
    g_dbus_connection_new_for_address(address.get(), flags, nullptr, cancellable_.get(), opened,
                                      self);
}

void Question::ask() {
    const char* const session = g_getenv("XDG_SESSION_ID");
    if (session != nullptr && *session != '\0') {
        find("GetSession", g_variant_new("(s)", session), sessionInterface);
    } else {
        find("GetSessionByPID", g_variant_new("(u)", ownProcess), sessionInterface);
    }
}

void Question::askForUser() {
    find("GetUser", g_variant_new("(u)", static_cast<guint32>(::getuid())), userInterface);
}

void Question::find(const char* method, GVariant* arguments, const char* interface) {
    callDBus(connection_.get(), manager, method, arguments, "(o)", timeoutMilliseconds,
             cancellable_.get(),
             [self = shared_from_this(), interface](GVariant* reply, const GError* error) {
                 if (reply == nullptr) {
                     return self->fail(error);
                 }
                 const char* object = nullptr;
                 g_variant_get(reply, "(&o)", &object);
                 self->readState(object, interface);
             });
}

void Question::readState(const std::string& object, const char* interface) {
    getDBusProperty(
        connection_.get(), {managerName, object.c_str(), interface}, "State", timeoutMilliseconds,
        cancellable_.get(), [self = shared_from_this()](GVariant* state, const GError* error) {
            if (state == nullptr) {
                return self->fail(error);
            }
            const bool isText = g_variant_is_of_type(state, G_VARIANT_TYPE_STRING);
            const std::string_view text = isText ? g_variant_get_string(state, nullptr) : "";
            // sd_session_get_state(3), sd_uid_get_state(3)
            const bool isOpen = text == "active" || text == "online";
            self->answer_(isOpen ? LoginSession::open : LoginSession::over);
        });
}

void Question::fail(const GError* error) {
    if (isCancelled(error)) {
        return;
    }
    const GStringHandle remote(g_dbus_error_get_remote_error(error));
    const std::string_view name = remote != nullptr ? remote.get() : "";
    if (name == "org.freedesktop.login1.NoSessionForPID") {
        return askForUser();
    }
    // An object that is unknown has gone between the two calls.
    if (name == "org.freedesktop.login1.NoSuchSession" ||
        name == "org.freedesktop.login1.NoSuchUser" ||
        name == "org.freedesktop.DBus.Error.UnknownObject") {
        return answer_(LoginSession::over);
    }
    const bool hasManager = name != "org.freedesktop.DBus.Error.ServiceUnknown" &&
                            name != "org.freedesktop.DBus.Error.NameHasNoOwner" &&
                            !name.starts_with("org.freedesktop.DBus.Error.Spawn.");
    answer_(hasManager ? LoginSession::noAnswer : LoginSession::noManager);
}

}  // namespace

void askLoginSession(GCancellable* cancellable, std::function<void(LoginSession)> answer) {
    std::make_shared<Question>(cancellable, std::move(answer))->connect();
}

}  // namespace glintmark::platform
