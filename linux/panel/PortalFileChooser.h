#pragma once

#include <gio/gio.h>

#include <functional>
#include <optional>

#include "linux/bus/PortalRequest.h"
#include "linux/glib/GLibHandles.h"
#include "platform/OpenPanel.h"

namespace glintmark::platform {

/// One dialog of the desktop portal's file chooser. Destroying this closes it. Main thread only.
class PortalFileChooser {
public:
    /// Runs once, from the main loop. Absent if the portal cannot show the dialog. If the portal
    /// dies while the dialog is open, the result is a cancellation.
    using Done = std::function<void(std::optional<OpenPanel::Result>)>;

    PortalFileChooser(GDBusConnection* connection, OpenPanel::Settings settings, Done done);
    ~PortalFileChooser();
    PortalFileChooser(const PortalFileChooser&) = delete;
    PortalFileChooser& operator=(const PortalFileChooser&) = delete;

private:
    void checkVersion();
    void open();
    void respond(PortalRequest::Outcome outcome, GVariant* results);
    void finish(std::optional<OpenPanel::Result> result);

    GObjectHandle<GDBusConnection> connection_;
    GObjectHandle<GCancellable> cancellable_;
    OpenPanel::Settings settings_;
    Done done_;
    std::optional<PortalRequest> request_;
};

}  // namespace glintmark::platform
