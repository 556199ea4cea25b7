#pragma once

#include <functional>
#include <string>

#include "link/CommandLine.h"

namespace glintmark::platform {
class DesktopWorkspace;
}  // namespace glintmark::platform

namespace glintmark::link {

/// Gives the files and folders of `command` their icons and shows what happens: a bar on a
/// terminal, else one line a file. `workspace` must be the one of the services in force. Runs the
/// default main context until all is done, SIGINT, SIGTERM or SIGHUP. Returns an exit status of
/// sysexits.h, or 128 and the number of the signal. `summarise` receives what came of the run, on
/// one line.
int setIcons(const Command& command, platform::DesktopWorkspace& workspace,
             const std::function<void(const std::string& line)>& summarise);

}  // namespace glintmark::link
