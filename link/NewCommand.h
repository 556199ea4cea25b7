#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "link/CommandLine.h"

namespace glintmark::link {

/// Makes link files as `command` says and prints their paths. `complain` receives one line for each
/// that was not made. Returns an exit status of sysexits.h. Waits for pages, but not longer than
/// `maximumWait` each. Not for threads on which requests complete.
int createLinkFiles(const Command& command,
                    const std::function<void(const std::string& message)>& complain,
                    std::chrono::milliseconds maximumWait = std::chrono::seconds(15));

}  // namespace glintmark::link
