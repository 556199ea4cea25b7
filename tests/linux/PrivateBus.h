#pragma once

#include <gio/gio.h>

#include <string>

#include "linux/bus/SessionBus.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// A private message bus. DBUS_SESSION_BUS_ADDRESS names it while this exists. It can end and start
/// again at the same address.
class PrivateBus {
public:
    enum class Begin { started, stopped };

    explicit PrivateBus(Begin begin = Begin::started);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    void start();
    void stop();
    void stop(const SessionBus& program);  ///< Also waits until the program has lost it.
    void pause();                          ///< It reads nothing until it is stopped.
    const std::string& address() const { return address_; }
    const std::string& folder() const { return folder_; }  ///< Only the bus's files are removed.

    /// A connection for another program.
    GObjectHandle<GDBusConnection> connect() const;

private:
    std::string folder_;
    std::string address_;
    GObjectHandle<GSubprocess> daemon_;
};

}  // namespace glintmark::platform
