#pragma once

#include <chrono>
#include <functional>

#include "base/system/FileDescriptor.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// SIGTERM, SIGINT and SIGHUP, each of which ends the process with status 0: at once while there is
/// no handler, else through that handler.
///
/// A main thread that waits, for a picture or for a file system that hangs, must not hold the end
/// up: when the process is still there `patience` after the first signal, it ends wherever it is.
/// One object at a time. Main thread.
class EndingSignals {
public:
    explicit EndingSignals(std::chrono::milliseconds patience);
    ~EndingSignals();  ///< The signals have their default effect again.
    EndingSignals(const EndingSignals&) = delete;
    EndingSignals& operator=(const EndingSignals&) = delete;

    /// From now on a signal calls `handler` on the default main context.
    void handle(std::function<void()> handler);

private:
    FileDescriptor arrived_;  ///< An event counter, raised by each signal.
    std::function<void()> handler_;
    GSourceId source_;
};

}  // namespace glintmark::platform
