#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// One interface of one object that the program exports on the bus while this exists.
///
/// The handlers run in the main context that was the default of the constructing thread. GDBus
/// itself refuses unknown methods and arguments of the wrong types; they reach no handler.
class DBusObject {
public:
    /// Must answer `invocation` exactly once, which also releases it. `arguments` has the types
    /// that the interface declares.
    using Call = std::function<void(const std::string& method, GVariant* arguments,
                                    GDBusMethodInvocation* invocation)>;
    /// Returns the value of a declared property: a new reference or floating, never null.
    using Property = std::function<GVariant*(const std::string& name)>;

    /// Exports the first interface of `xml`, which is introspection data.
    DBusObject(GDBusConnection* connection, const char* path, const char* xml, Call call,
               Property property);
    ~DBusObject();
    DBusObject(const DBusObject&) = delete;
    DBusObject& operator=(const DBusObject&) = delete;

    /// Broadcasts a signal. `arguments` is a tuple or null, and may be floating.
    void emit(const char* signal, GVariant* arguments) const;

private:
    using NodeInfo = std::unique_ptr<GDBusNodeInfo, ReleaseWith<g_dbus_node_info_unref>>;

    const GDBusInterfaceInfo* interface() const { return info_->interfaces[0]; }

    GObjectHandle<GDBusConnection> connection_;
    std::string path_;
    NodeInfo info_;
    Call call_;
    Property property_;
    guint registration_ = 0;  ///< Zero if the path was taken; then nothing is exported.
};

/// Answers with "org.freedesktop.DBus.Error.InvalidArgs".
void refuse(GDBusMethodInvocation* invocation, const char* why);

}  // namespace glintmark::platform
