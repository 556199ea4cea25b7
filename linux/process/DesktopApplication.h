#pragma once

#include <gio/gio.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "linux/bus/DBusObject.h"
#include "linux/bus/SessionBus.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// The program as desktops start it and send it the commands of its desktop entry: the interface
/// org.freedesktop.Application (Desktop Entry Specification, "D-Bus Activation").
///
/// Main thread only. Make it before `SessionBus::acquireName`: the call that made the bus start the
/// program arrives as soon as the name is owned. Calls wait for the running main loop.
class DesktopApplication {
public:
    static constexpr auto path = "/com/quorvel/Glintmark";
    static constexpr auto interface = "org.freedesktop.Application";

    // The actions of the desktop entry.
    static constexpr auto addFolderAction = "add-folder";
    static constexpr auto quitAction = "quit";

    /// Who asks the running program to show itself.
    enum class Start {
        byDesktop,  ///< The user chose the program's entry.
        byASecond,  ///< A second start, which may come from the session's autostart.
    };

    struct Handlers {
        std::function<void(Start)> started;
        std::map<std::string, std::function<void()>> actions;  ///< By name in the desktop entry.
    };

    explicit DesktopApplication(SessionBus& bus);
    DesktopApplication(const DesktopApplication&) = delete;
    DesktopApplication& operator=(const DesktopApplication&) = delete;

    /// The handlers run from the main loop, after the caller has its answer.
    void setHandlers(Handlers handlers) { handlers_ = std::move(handlers); }

    /// Tells the program that owns the name that it was started again. Does not wait for an answer;
    /// `SessionBus::flush` sends the message.
    static void reportSecondStart(GDBusConnection* connection);

private:
    void call(const std::string& method, GVariant* arguments, GDBusMethodInvocation* invocation);
    void runLater(std::function<void()> work);
    void runPending();

    Handlers handlers_;
    std::vector<std::function<void()>> pending_;
    GSourceId source_;
    std::optional<DBusObject> object_;
    SessionBus::Subscription subscription_;
};

}  // namespace glintmark::platform
