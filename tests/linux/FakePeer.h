#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <vector>

#include "linux/bus/DBusObject.h"
#include "linux/glib/GLibHandles.h"
#include "tests/linux/PrivateBus.h"

namespace glintmark::platform {

/// The answer to a call that a test made.
struct PeerReply {
    GVariantHandle value;   ///< Null when the call failed.
    std::string errorName;  ///< Such as "org.freedesktop.DBus.Error.InvalidArgs".

    /// The `index`th part of the answer in GLib's text format.
    std::string part(gsize index) const;
};

/// A process beside the program under test: a connection of its own, on the test's thread.
class FakePeer {
public:
    explicit FakePeer(const PrivateBus& bus);

    GDBusConnection* connection() const { return connection_.get(); }
    std::string uniqueName() const;

    void ownName(const std::string& name);
    void giveUpName(const std::string& name);

    /// Offers an object; its handlers run while the test waits.
    void offer(const char* path, const char* xml, DBusObject::Call call,
               DBusObject::Property property = {});

    void withdraw() { objects_.clear(); }  ///< Offers nothing any more.

    void emit(const char* signal, GVariant* arguments) { objects_.back()->emit(signal, arguments); }

    /// Calls and waits for the answer. `arguments` is a tuple in GLib's text format.
    PeerReply call(const std::string& name, const std::string& path, const std::string& interface,
                   const std::string& method, const std::string& arguments) const;

    /// A property in GLib's text format; empty when there is none.
    std::string property(const std::string& name, const std::string& path,
                         const std::string& interface, const std::string& property) const;

    /// Ends the connection as the end of its process does.
    void die();

private:
    GObjectHandle<GDBusConnection> connection_;
    std::vector<std::unique_ptr<DBusObject>> objects_;
};

}  // namespace glintmark::platform
