#pragma once

#include <string>

namespace glintmark::platform {

/// Starts `program`, found in PATH, with one argument and without output, and does not wait for it.
/// False when it cannot be started.
bool startCommand(std::string program, std::string argument);

}  // namespace glintmark::platform
