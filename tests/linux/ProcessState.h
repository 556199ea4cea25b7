#pragma once

#include <cstddef>
#include <string>

namespace glintmark::platform {

/// Counts of the test's own process, from proc(5).
std::size_t openDescriptors();
std::size_t inotifyWatches();

/// Also counts threads that have just ended: a join returns before the kernel forgets the thread.
std::size_t threadsNamed(const std::string& name);

}  // namespace glintmark::platform
