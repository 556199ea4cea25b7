#include "linux/bus/DBusCall.h"

#include <memory>
#include <utility>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

namespace {

using GVariantTypeHandle = std::unique_ptr<GVariantType, ReleaseWith<g_variant_type_free>>;

void answered(GObject* source, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<DBusReply> reply(static_cast<DBusReply*>(data));
    GErrorOut error;
    const GVariantHandle value(
        g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, error.out()));
    (*reply)(value.get(), error.get());
}

}  // namespace

void callDBus(GDBusConnection* connection, const DBusTarget& target, const char* method,
              GVariant* arguments, const char* resultType, int timeoutMilliseconds,
              GCancellable* cancellable, DBusReply reply) {
    const GVariantTypeHandle type(g_variant_type_new(resultType));
    g_dbus_connection_call(connection, target.name, target.path, target.interface, method,
                           arguments, type.get(), G_DBUS_CALL_FLAGS_NONE, timeoutMilliseconds,
                           cancellable, answered,
                           std::make_unique<DBusReply>(std::move(reply)).release());
}

void getDBusProperty(GDBusConnection* connection, const DBusTarget& target, const char* property,
                     int timeoutMilliseconds, GCancellable* cancellable, DBusReply reply) {
    const DBusTarget properties{target.name, target.path, "org.freedesktop.DBus.Properties"};
    callDBus(connection, properties, "Get", g_variant_new("(ss)", target.interface, property),
             "(v)", timeoutMilliseconds, cancellable,
             [reply = std::move(reply)](GVariant* result, const GError* error) {
                 if (result == nullptr) {
                     reply(nullptr, error);
                     return;
                 }
                 GVariant* value = nullptr;
                 g_variant_get(result, "(v)", &value);
                 const GVariantHandle owner(value);
                 reply(value, nullptr);
             });
}

std::string errorText(const GError* error) {
    const GErrorHandle copy(g_error_copy(error));
    g_dbus_error_strip_remote_error(copy.get());
    return copy->message;
}

}  // namespace glintmark::platform
