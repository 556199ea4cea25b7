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
    /// socket is closed. Empty on failure.
    FileDescriptor start() const;

private:
    std::string path_;
    FileDescriptor executable_;
};

}  // namespace glintmark::platform
