#pragma once

#include <string>

namespace glintmark::platform {

/// Starts `program`, found in PATH, with one argument and without output, and does not wait for it.
/// False when it cannot be started.
bool startCommand(std::string program, std::string argument);

/// True if this process may gain no privileges (prctl(2), PR_SET_NO_NEW_PRIVS), as under the
/// systemd unit. Its children inherit that and the unit's other limits, so a browser could not make
/// its sandbox.
bool limitsChildren();

/// The same as startCommand(), but systemd starts the program, as a service of the user's own
/// manager.
bool startServiceOf(std::string program, std::string argument);

}  // namespace glintmark::platform
