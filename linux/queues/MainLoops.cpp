#include "linux/queues/MainLoops.h"

namespace glintmark::platform {

void MainLoops::run(GMainLoop* loop) {
    if (ending_) {
        return;
    }
    running_.push_back(loop);
    g_main_loop_run(loop);
    running_.pop_back();
    if (running_.empty()) {
        ending_ = false;
    }
}

void MainLoops::quitAll() {
    ending_ = !running_.empty();
    for (GMainLoop* loop : running_) {
        g_main_loop_quit(loop);
    }
}

}  // namespace glintmark::platform
