#include "linux/notifications/RunningNotification.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "linux/bus/DBusCall.h"

// Methods, hints and signals: freedesktop.org, Desktop Notifications Specification.

namespace glintmark::platform {

namespace {

constexpr DBusTarget server{"org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                            "org.freedesktop.Notifications"};
constexpr int defaultTimeout = -1;  // GDBus's 25 s: the bus may have to start the service
constexpr auto programTitle = "Glintmark";
constexpr int serverDecidesWhenItExpires = -1;

}  // namespace

RunningNotification::RunningNotification(SessionBus& bus, std::string icon)
    : bus_(bus), icon_(std::move(icon)) {}

RunningNotification::~RunningNotification() { forget(); }

void RunningNotification::post(const std::string& text, std::vector<Command> commands) {
    if (bus_.connection() == nullptr) {
        return;
    }
    const guint earlier = connection_.get() == bus_.connection() ? id_ : 0;
    forget();
    commands_ = std::move(commands);
    connection_ = shareGObject(bus_.connection());
    cancellable_.reset(g_cancellable_new());
    listen();

    GVariantBuilder actions;
    g_variant_builder_init(&actions, G_VARIANT_TYPE_STRING_ARRAY);
    for (const Command& command : commands_) {
        g_variant_builder_add(&actions, "s", command.name.c_str());
        g_variant_builder_add(&actions, "s", command.title.c_str());
    }
    GVariantBuilder hints;
    g_variant_builder_init(&hints, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&hints, "{sv}", "desktop-entry",
                          g_variant_new_string(SessionBus::programName));
    callDBus(connection_.get(), server, "Notify",
             g_variant_new("(susssasa{sv}i)", programTitle, earlier, icon_.c_str(), programTitle,
                           text.c_str(), &actions, &hints, serverDecidesWhenItExpires),
             "(u)", defaultTimeout, cancellable_.get(),
             [this](GVariant* result, const GError* error) {
                 if (isCancelled(error)) {
                     return;
                 }
                 if (result == nullptr) {
                     forget();
                 } else {
                     g_variant_get(result, "(u)", &id_);
                 }
             });
}

void RunningNotification::withdraw() {
    if (id_ != 0) {
        g_dbus_connection_call(connection_.get(), server.name, server.path, server.interface,
                               "CloseNotification", g_variant_new("(u)", id_), nullptr,
                               G_DBUS_CALL_FLAGS_NO_AUTO_START, defaultTimeout, nullptr, nullptr,
                               nullptr);
    }
    forget();
}

void RunningNotification::listen() {
    const auto received = [](GDBusConnection*, const gchar*, const gchar*, const gchar*,
                             const gchar* name, GVariant* arguments, gpointer data) {
        auto* self = static_cast<RunningNotification*>(data);
        const bool isClosed = std::string_view(name) == "NotificationClosed";
        guint id = 0;
        if (isClosed && g_variant_is_of_type(arguments, G_VARIANT_TYPE("(uu)")) != FALSE) {
            g_variant_get(arguments, "(uu)", &id, nullptr);
            self->closed(id);
        } else if (!isClosed && g_variant_is_of_type(arguments, G_VARIANT_TYPE("(us)")) != FALSE) {
            const char* action = nullptr;
            g_variant_get(arguments, "(u&s)", &id, &action);
            self->invoked(id, action);
        }
    };
    signals_ = g_dbus_connection_signal_subscribe(
        connection_.get(), server.name, server.interface, nullptr, server.path, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE, received, this, nullptr);
}

/// Stops to listen, so that the notifications of other programs never wake this one.
void RunningNotification::forget() {
    if (connection_ == nullptr) {
        return;
    }
    g_cancellable_cancel(cancellable_.get());
    g_dbus_connection_signal_unsubscribe(connection_.get(), signals_);
    connection_.reset();
    id_ = 0;
}

void RunningNotification::closed(guint id) {
    if (id == id_ && id != 0) {
        forget();
    }
}

/// The command may open a dialog with a nested loop, so the notification is closed before that.
/// Some services keep it open after a click.
void RunningNotification::invoked(guint id, const char* name) {
    const auto command = std::find_if(commands_.begin(), commands_.end(),
                                      [&](const Command& known) { return known.name == name; });
    if (id != id_ || id == 0 || command == commands_.end()) {
        return;
    }
    const auto run = command->run;
    withdraw();
    run();
}

}  // namespace glintmark::platform
