#pragma once

#include <chrono>
#include <functional>

#include "base/system/FileDescriptor.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// Makes SIGTERM, SIGINT and SIGHUP end the process with status 0: at once while there is no
/// handler, else through the handler.
///
/// The main thread may be blocked by a picture or by a file system that hangs. So if the process
/// still runs `timeout` after the first signal, it exits at once. Only one object may exist at a
/// time. Main thread only.
class TerminationSignals {
public:
    explicit TerminationSignals(std::chrono::milliseconds timeout);
    ~TerminationSignals();  ///< Restores the signals' default effect.
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

    /// From now on a signal calls `handler` on the default main context.
    void handle(std::function<void()> handler);

private:
    FileDescriptor arrived_;  ///< An eventfd(2) that each signal adds to.
    std::function<void()> handler_;
    GSourceId source_;
};

}  // namespace glintmark::platform
