#pragma once

#include <gio/gio.h>

#include <functional>
#include <optional>
#include <string>

#include "linux/glib/GLibHandles.h"
#include "platform/OpenPanel.h"

namespace glintmark::platform {

/// One dialog of the desktop portal's file chooser, closed when this goes away. Main thread only.
class PortalFileChooser {
public:
    /// Called once, from the main loop: with the answer, or with nothing when the portal cannot
    /// show such a dialog. Losing the portal while the dialog is open counts as cancelled.
    using Done = std::function<void(std::optional<OpenPanel::Result>)>;

    PortalFileChooser(GDBusConnection* connection, OpenPanel::Settings settings, Done done);
    ~PortalFileChooser();
    PortalFileChooser(const PortalFileChooser&) = delete;
    PortalFileChooser& operator=(const PortalFileChooser&) = delete;

private:
    void askVersion();
    void open();
    void listen();
    void watchPortal();
    void answered(GVariant* response);
    void finish(std::optional<OpenPanel::Result> result);

    GObjectHandle<GDBusConnection> connection_;
    GObjectHandle<GCancellable> cancellable_;
    OpenPanel::Settings settings_;
    Done done_;
    std::string requestPath_;  ///< Empty while there is no dialog to close.
    guint responseSignal_ = 0;
    guint watch_ = 0;
};

}  // namespace glintmark::platform
