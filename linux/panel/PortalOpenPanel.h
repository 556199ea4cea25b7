#pragma once

#include "linux/bus/SessionBus.h"
#include "linux/queues/MainLoops.h"
#include "platform/OpenPanel.h"

namespace glintmark::platform {

/// The desktop portal's file chooser, or zenity or kdialog where there is no portal.
///
/// Only one panel is open at a time: a second one, requested from the first one's loop, is
/// cancelled at once. A panel that is open when the program ends (`MainLoops::quitAll`) is
/// cancelled too.
class PortalOpenPanel : public OpenPanel {
public:
    PortalOpenPanel(SessionBus& bus, MainLoops& loops) : bus_(bus), loops_(loops) {}

    Result runModal(const Settings& settings) override;

private:
    SessionBus& bus_;
    MainLoops& loops_;
    bool open_ = false;
};

}  // namespace glintmark::platform
