#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// One interface of one object that the program offers on the bus, until it is destroyed.
///
/// The handlers run in the main context that was the default of the constructing thread. Calls of
/// unknown methods or with arguments of the wrong types are answered before they reach a handler.
class DBusObject {
public:
    /// `invocation` is to be answered exactly once, which also releases it; `arguments` has the
    /// types that the interface declares.
    using Call = std::function<void(const std::string& method, GVariant* arguments,
                                    GDBusMethodInvocation* invocation)>;
    /// The value of a declared property, with a reference for the caller or floating; never null.
    using Property = std::function<GVariant*(const std::string& name)>;

    /// `xml` is introspection data whose first interface is offered.
    DBusObject(GDBusConnection* connection, const char* path, const char* xml, Call call,
               Property property);
    ~DBusObject();
    DBusObject(const DBusObject&) = delete;
    DBusObject& operator=(const DBusObject&) = delete;

    /// Sends a signal to whoever listens. `arguments` is a tuple or null and may be floating.
    void emit(const char* signal, GVariant* arguments) const;

private:
    using NodeInfo = std::unique_ptr<GDBusNodeInfo, ReleaseWith<g_dbus_node_info_unref>>;

    const GDBusInterfaceInfo* interface() const { return info_->interfaces[0]; }

    GObjectHandle<GDBusConnection> connection_;
    std::string path_;
    NodeInfo info_;
    Call call_;
    Property property_;
    guint registration_ = 0;  ///< Zero when the path is taken, which nothing can do about.
};

/// Answers with "org.freedesktop.DBus.Error.InvalidArgs".
void refuse(GDBusMethodInvocation* invocation, const char* why);

}  // namespace glintmark::platform
