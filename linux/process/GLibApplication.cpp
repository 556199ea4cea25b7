#include "linux/process/GLibApplication.h"

#include <csignal>

namespace glintmark::platform {

GLibApplication::GLibApplication(MainLoops& loops, std::chrono::milliseconds quitTimeout)
    : loops_(loops), signals_(quitTimeout) {
    // Not needed: write(2) reports a closed connection with EPIPE.
    std::signal(SIGPIPE, SIG_IGN);
}

void GLibApplication::setActivationPolicy(ActivationPolicy /*policy*/) {}

void GLibApplication::run() {
    if (delegate_ != nullptr) {
        signals_.handle([this] { delegate_->quit(); });
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
