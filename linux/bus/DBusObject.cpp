#include "linux/bus/DBusObject.h"

#include <utility>

namespace glintmark::platform {

DBusObject::DBusObject(GDBusConnection* connection, const char* path, const char* xml, Call call,
                       Property property)
    : connection_(shareGObject(connection)),
      path_(path),
      info_(g_dbus_node_info_new_for_xml(xml, nullptr)),
      call_(std::move(call)),
      property_(std::move(property)) {
    static const GDBusInterfaceVTable table{
        .method_call =
            [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* method,
               GVariant* arguments, GDBusMethodInvocation* invocation, gpointer self) {
                static_cast<DBusObject*>(self)->call_(method, arguments, invocation);
            },
        .get_property = [](GDBusConnection*, const gchar*, const gchar*, const gchar*,
                           const gchar* name, GError**, gpointer self) -> GVariant* {
            return static_cast<DBusObject*>(self)->property_(name);
        },
        .set_property = nullptr,
        .padding = {}};
    registration_ = g_dbus_connection_register_object(connection, path, info_->interfaces[0],
                                                      &table, this, nullptr, nullptr);
}

DBusObject::~DBusObject() {
    if (registration_ != 0) {
        g_dbus_connection_unregister_object(connection_.get(), registration_);
    }
}

void DBusObject::emit(const char* signal, GVariant* arguments) const {
    g_dbus_connection_emit_signal(connection_.get(), nullptr, path_.c_str(), interface()->name,
                                  signal, arguments, nullptr);
}

void refuse(GDBusMethodInvocation* invocation, const char* why) {
    g_dbus_method_invocation_return_error_literal(invocation, G_DBUS_ERROR,
                                                  G_DBUS_ERROR_INVALID_ARGS, why);
}

}  // namespace glintmark::platform
