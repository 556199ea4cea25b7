#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

namespace glintmark::platform {

/// The peer, the object and the interface that a D-Bus call goes to.
struct DBusTarget {
    const char* name;
    const char* path;
    const char* interface;
};

/// Exactly one of the two is set. Both are borrowed for the call.
using DBusReply = std::function<void(GVariant* result, const GError* error)>;

/// Calls `method` and returns at once; `reply` runs exactly once, later, in the caller's main
/// context. `arguments` may be floating; `cancellable` may be null. Whoever guards an object with
/// it must leave the object alone when `error` is `isCancelled`.
void callDBus(GDBusConnection* connection, const DBusTarget& target, const char* method,
              GVariant* arguments, const char* resultType, int timeoutMilliseconds,
              GCancellable* cancellable, DBusReply reply);

bool isCancelled(const GError* error);

/// The error's text as the peer wrote it.
std::string errorText(const GError* error);

}  // namespace glintmark::platform
