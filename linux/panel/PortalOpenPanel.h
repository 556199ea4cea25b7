#pragma once

#include "linux/bus/SessionBus.h"
#include "linux/queues/MainLoops.h"
#include "platform/OpenPanel.h"

namespace glintmark::platform {

/// The desktop portal's file chooser; where there is none, zenity or kdialog.
///
/// One panel at a time: a second one asked for from the loop of the first counts as cancelled, and
/// so does one that is open when the program ends (`MainLoops::quitAll`).
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
