#pragma once

#include <chrono>

#include "linux/glib/GLibHandles.h"
#include "linux/process/EndingSignals.h"
#include "linux/queues/MainLoops.h"
#include "platform/Application.h"

namespace glintmark::platform {

/// The process around the default main context. From its construction on SIGPIPE is ignored, and
/// SIGTERM, SIGINT and SIGHUP end the process with status 0: at once before it runs, and then by
/// asking the delegate to quit.
class GLibApplication : public Application {
public:
    /// `patience` is how long a signal waits for the end before it forces it.
    explicit GLibApplication(MainLoops& loops,
                             std::chrono::milliseconds patience = std::chrono::milliseconds(500));
    GLibApplication(const GLibApplication&) = delete;
    GLibApplication& operator=(const GLibApplication&) = delete;

    /// Has no effect: a process without windows is an accessory on Linux already.
    void setActivationPolicy(ActivationPolicy policy) override;
    void setDelegate(ApplicationDelegate& delegate) override { delegate_ = &delegate; }
    void run() override;
    void terminate() override { loops_.quitAll(); }

private:
    MainLoops& loops_;
    ApplicationDelegate* delegate_ = nullptr;
    EndingSignals signals_;
    GSourceId launch_;
};

}  // namespace glintmark::platform
