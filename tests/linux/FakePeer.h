#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <vector>

#include "linux/bus/DBusObject.h"
#include "linux/glib/GLibHandles.h"
#include "tests/linux/PrivateBus.h"

namespace glintmark::platform {

/// `value` in GLib's text format.
std::string variantText(GVariant* value);

/// The answer to a test's call.
struct PeerReply {
    GVariantHandle value;   ///< Null if the call failed.
    std::string errorName;  ///< Such as "org.freedesktop.DBus.Error.InvalidArgs".

    /// The `index`th part of the answer in GLib's text format.
    std::string part(gsize index) const;
};

/// Another program on the bus, with its own connection, on the test's thread.
class FakePeer {
public:
    /// A signal that a peer received, with its arguments in GLib's text format.
    struct Signal {
        std::string name;
        std::string arguments;
    };

    explicit FakePeer(const PrivateBus& bus);
    ~FakePeer();
    FakePeer(const FakePeer&) = delete;
    FakePeer& operator=(const FakePeer&) = delete;

    GDBusConnection* connection() const { return connection_.get(); }
    std::string uniqueName() const;

    /// These two block the thread: meanwhile the default main context does not run.
    void ownName(const std::string& name);
    std::string ownerOf(const std::string& name) const;  ///< Empty if nobody owns it.

    /// Exports an object. Its handlers run while the test waits.
    void offer(const char* path, const char* xml, DBusObject::Call call,
               DBusObject::Property property = {});

    void withdraw() { objects_.clear(); }  ///< Removes all objects.

    /// Emits a signal of the last object.
    void emit(const char* signal, GVariant* arguments) { objects_.back()->emit(signal, arguments); }

    /// Receives the signals of `interface` from now on. They arrive while the test waits.
    void listen(const char* interface);
    const std::vector<Signal>& signals() const { return signals_; }

    /// Calls and waits for the answer. `arguments` is a tuple in GLib's text format.
    PeerReply call(const std::string& name, const std::string& path, const std::string& interface,
                   const std::string& method, const std::string& arguments) const;

    /// A property in GLib's text format; empty if there is none.
    std::string property(const std::string& name, const std::string& path,
                         const std::string& interface, const std::string& property) const;

    /// Waits until `connection` has handled all that this peer has sent to it. False if that does
    /// not happen.
    bool isHandledBy(GDBusConnection* connection) const;

    /// Ends the connection, as the end of its process would.
    void die();

private:
    /// Calls the bus and blocks the thread. Null on failure.
    GVariantHandle callBus(const char* method, GVariant* arguments) const;

    GObjectHandle<GDBusConnection> connection_;
    std::vector<std::unique_ptr<DBusObject>> objects_;
    std::vector<Signal> signals_;
    guint subscription_ = 0;
};

}  // namespace glintmark::platform
