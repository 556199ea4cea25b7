#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

namespace glintmark::platform {

/// The peer, object and interface that a D-Bus call goes to.
struct DBusTarget {
    const char* name;
    const char* path;
    const char* interface;
};

/// Exactly one of the two is set. Both are valid only during the call.
using DBusReply = std::function<void(GVariant* result, const GError* error)>;

/// Calls `method` and returns at once. `reply` runs exactly once, later, in the caller's main
/// context, also after a cancellation. So if the owner of `reply` cancels in its destructor,
/// `reply` must not use the owner when `isCancelled(error)`. `arguments` may be floating;
/// `cancellable` may be null.
void callDBus(GDBusConnection* connection, const DBusTarget& target, const char* method,
              GVariant* arguments, const char* resultType, int timeoutMilliseconds,
              GCancellable* cancellable, DBusReply reply);

/// Reads a property of the target's interface, as `callDBus` calls a method. The result is the bare
/// value, of any type.
void getDBusProperty(GDBusConnection* connection, const DBusTarget& target, const char* property,
                     int timeoutMilliseconds, GCancellable* cancellable, DBusReply reply);

/// The error's message as the peer sent it, without GLib's prefix.
std::string errorText(const GError* error);

}  // namespace glintmark::platform
