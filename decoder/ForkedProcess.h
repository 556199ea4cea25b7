#pragma once

#include <sys/types.h>

#include <functional>

#include "base/system/FileDescriptor.h"

namespace glintmark::decoder {

/// A process that must be reaped.
struct ForkedProcess {
    pid_t pid = -1;
    FileDescriptor descriptor;  ///< Readable once the process has ended; see pidfd_open(2).
};

/// Forks a process that runs `body`, which must not return. The process is killed when its parent
/// ends. The result has no descriptor if the system has no more processes or descriptors.
ForkedProcess forkProcess(const std::function<void()>& body);

}  // namespace glintmark::decoder
