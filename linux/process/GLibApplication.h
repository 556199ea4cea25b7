#pragma once

#include <chrono>

#include "linux/glib/GLibHandles.h"
#include "linux/process/TerminationSignals.h"
#include "linux/queues/MainLoops.h"
#include "platform/Application.h"

namespace glintmark::platform {

/// The process, which runs the default main context. From the constructor on, SIGPIPE is ignored,
/// and SIGTERM, SIGINT and SIGHUP end the process with status 0: before `run()` at once, after that
/// by asking the delegate to quit.
class GLibApplication : public Application {
public:
    /// If the process still runs `quitTimeout` after a signal, it exits at once.
    explicit GLibApplication(
        MainLoops& loops, std::chrono::milliseconds quitTimeout = std::chrono::milliseconds(500));
    GLibApplication(const GLibApplication&) = delete;
    GLibApplication& operator=(const GLibApplication&) = delete;

    /// Does nothing: on Linux, a process without windows is an accessory.
    void setActivationPolicy(ActivationPolicy policy) override;
    void setDelegate(ApplicationDelegate& delegate) override { delegate_ = &delegate; }
    ApplicationDelegate* delegate() const { return delegate_; }  ///< Null until it is set.
    void run() override;
    void terminate() override { loops_.quitAll(); }

private:
    MainLoops& loops_;
    ApplicationDelegate* delegate_ = nullptr;
    TerminationSignals signals_;
    GSourceId launch_;
};

}  // namespace glintmark::platform
