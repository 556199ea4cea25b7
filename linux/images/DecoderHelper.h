#pragma once

#include <string>

#include "base/system/FileDescriptor.h"

namespace glintmark::platform {

/// The executable of the process that decodes images.
class DecoderHelper {
public:
    /// `path` names the executable. It is kept open, so that the file of this program's own build
    /// is started even after an upgrade has replaced it.
    explicit DecoderHelper(std::string path);

    /// Starts a process and returns the socket that is connected with it. The process ends when the
    /// socket is closed. Empty on failure. Does not wait until the process is ready: if it fails
    /// to start, the other end of the socket is closed. `endStart` must follow.
    FileDescriptor start();

    /// The started process forks the one that decodes and exits, so that the program never has to
    /// reap the latter. Reaps the started process, and ends it if it hangs. Call this after the
    /// first message, or to give up.
    void endStart();

private:
    std::string path_;
    FileDescriptor executable_;
    FileDescriptor starter_;  ///< The started process; see pidfd_open(2). Empty once it is reaped.
};

}  // namespace glintmark::platform
