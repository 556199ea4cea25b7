#pragma once

#include <chrono>
#include <functional>
#include <utility>

#include "linux/glib/GLibHandles.h"
#include "linux/process/DesktopApplication.h"

namespace glintmark::platform {

/// Answers a start of the program while it runs: shows that it runs if nothing else shows it.
///
/// Soon after the program's own start the desktop may not have had the time to show its status
/// item, so the answer waits. Default main context.
class StartNotice {
public:
    using Ask = std::function<void(std::function<void(bool)> answer)>;

    /// How long after the program's start a panel may be missing.
    struct Patience {
        std::chrono::milliseconds withDesktop{1000};  ///< The user works with the desktop already.
        std::chrono::milliseconds atLogin{30'000};    ///< The session's panel may start last.
    };

    /// `isShown` asks whether the desktop shows the program. If it does not, `show` runs.
    StartNotice(Ask isShown, std::function<void()> show)
        : StartNotice(std::move(isShown), std::move(show), Patience{}) {}
    StartNotice(Ask isShown, std::function<void()> show, Patience patience);
    StartNotice(const StartNotice&) = delete;
    StartNotice& operator=(const StartNotice&) = delete;

    /// A second start may come from the session's autostart, and thus at login.
    void started(DesktopApplication::Start start);

private:
    void ask();

    Ask isShown_;
    std::function<void()> show_;
    Patience patience_;
    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    GSourceId timer_;
};

}  // namespace glintmark::platform
