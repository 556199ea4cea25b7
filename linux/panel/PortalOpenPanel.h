#pragma once

#include "linux/bus/SessionBus.h"
#include "linux/queues/MainLoops.h"
#include "platform/OpenPanel.h"

namespace glintmark::platform {

/// The desktop portal's file chooser, or zenity or kdialog where there is no portal.
///
/// Only one panel is open at a time. A second one, requested from the first one's loop, is
/// cancelled at once, and the first one's dialog is shown anew, in front: neither the portal nor a
/// program that shows a dialog can be asked to raise it, on Wayland least of all. A panel that is
/// open when the program ends (`MainLoops::quitAll`) is cancelled too.
class PortalOpenPanel : public OpenPanel {
public:
    PortalOpenPanel(SessionBus& bus, MainLoops& loops) : bus_(bus), loops_(loops) {}
    PortalOpenPanel(const PortalOpenPanel&) = delete;
    PortalOpenPanel& operator=(const PortalOpenPanel&) = delete;

    Result runModal(const Settings& settings) override;

private:
    class Dialog;

    SessionBus& bus_;
    MainLoops& loops_;
    Dialog* open_ = nullptr;  ///< In `runModal`, on the stack.
};

}  // namespace glintmark::platform
