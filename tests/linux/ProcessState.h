#pragma once

#include <cstddef>
#include <string>

namespace glintmark::platform {

/// What the system says of the test's own process: proc(5).
std::size_t openDescriptors();
std::size_t inotifyWatches();
std::size_t threadsNamed(const std::string& name);

}  // namespace glintmark::platform
