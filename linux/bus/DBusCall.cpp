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

bool isCancelled(const GError* error) {
    return error != nullptr && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
}

std::string errorText(const GError* error) {
    const GErrorHandle copy(g_error_copy(error));
    g_dbus_error_strip_remote_error(copy.get());
    return copy->message;
}

}  // namespace glintmark::platform
