#pragma once

#include <gio/gio.h>

#include <string>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// A message bus of the test's own, which DBUS_SESSION_BUS_ADDRESS names while this exists. It can
/// end and start again at the same address.
class PrivateBus {
public:
    enum class Begin { started, stopped };

    explicit PrivateBus(Begin begin = Begin::started);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    void start();
    void stop();
    void pause();  ///< It reads nothing any more, until it is stopped.
    const std::string& address() const { return address_; }
    const std::string& folder() const { return folder_; }  ///< Empty but for the bus's files.

    /// A connection for a peer of the program under test.
    GObjectHandle<GDBusConnection> connect() const;

private:
    std::string folder_;
    std::string address_;
    GObjectHandle<GSubprocess> daemon_;
};

}  // namespace glintmark::platform
