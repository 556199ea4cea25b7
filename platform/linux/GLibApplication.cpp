#include "platform/linux/GLibApplication.h"

#include <glib-unix.h>

#include <array>
#include <csignal>

namespace glintmark::platform {

namespace {

constexpr std::array endingSignals{SIGTERM, SIGINT, SIGHUP};

gboolean askToQuit(gpointer delegate) {
    static_cast<ApplicationDelegate*>(delegate)->quit();
    return G_SOURCE_CONTINUE;
}

}  // namespace

GLibApplication::GLibApplication(MainLoops& loops) : loops_(loops) {
    // A peer that hangs up is reported by write(2) as well.
    std::signal(SIGPIPE, SIG_IGN);
}

void GLibApplication::setActivationPolicy(ActivationPolicy /*policy*/) {}

void GLibApplication::run() {
    std::array<GSourceId, endingSignals.size()> signals;
    if (delegate_ != nullptr) {
        for (std::size_t i = 0; i < endingSignals.size(); ++i) {
            signals[i] = GSourceId(g_unix_signal_add(endingSignals[i], askToQuit, delegate_));
        }
        const auto launch = [](gpointer data) -> gboolean {
            auto* self = static_cast<GLibApplication*>(data);
            self->launch_.forget();
            self->delegate_->applicationDidFinishLaunching();
            return G_SOURCE_REMOVE;
        };
        launch_ = GSourceId(g_idle_add_full(G_PRIORITY_HIGH, launch, this, nullptr));
    }
    const GMainLoopHandle loop(g_main_loop_new(nullptr, FALSE));
    loops_.run(loop.get());
}

}  // namespace glintmark::platform
