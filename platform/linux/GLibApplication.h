#pragma once

#include "platform/Application.h"
#include "platform/linux/GLibHandles.h"
#include "platform/linux/MainLoops.h"

namespace glintmark::platform {

/// The process around the default main context. While it runs, SIGTERM, SIGINT and SIGHUP ask the
/// delegate to quit; from its construction on SIGPIPE is ignored.
class GLibApplication : public Application {
public:
    explicit GLibApplication(MainLoops& loops);
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
    GSourceId launch_;
};

}  // namespace glintmark::platform
