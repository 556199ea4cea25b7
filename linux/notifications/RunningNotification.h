#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>
#include <vector>

#include "linux/bus/SessionBus.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// The one notification by which the program shows itself on a desktop where no panel shows its
/// status item. Its buttons are commands. Main thread only.
class RunningNotification {
public:
    struct Command {
        std::string name;
        std::string title;  ///< Of the button.
        std::function<void()> run;
    };

    /// `icon`: the program's icon, as a name in the icon theme or as a "file" URI.
    RunningNotification(SessionBus& bus, std::string icon);
    ~RunningNotification();
    RunningNotification(const RunningNotification&) = delete;
    RunningNotification& operator=(const RunningNotification&) = delete;

    /// Shows `text` with a button for each command, instead of an earlier notification. Returns at
    /// once; a service that is missing or hangs is ignored.
    void post(const std::string& text, std::vector<Command> commands);

    /// Removes the notification if there is one. `SessionBus::flush` sends the message.
    void withdraw();

private:
    void listen();
    void forget();
    void closed(guint id);
    void invoked(guint id, const char* name);

    SessionBus& bus_;
    std::string icon_;
    std::vector<Command> commands_;
    GObjectHandle<GDBusConnection> connection_;  ///< Of the notification; null if there is none.
    GObjectHandle<GCancellable> cancellable_;
    guint id_ = 0;  ///< Zero until the service has answered.
    guint signals_ = 0;
};

}  // namespace glintmark::platform
