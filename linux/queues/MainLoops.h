#pragma once

#include <glib.h>

#include <vector>

namespace glintmark::platform {

/// The main loops that run inside each other on the main thread: the program's own and, within it,
/// those of modal dialogs. Ending the program ends them all.
class MainLoops {
public:
    MainLoops() = default;
    MainLoops(const MainLoops&) = delete;
    MainLoops& operator=(const MainLoops&) = delete;

    /// Runs `loop` until it is quit. Returns at once while the program is ending.
    void run(GMainLoop* loop);

    /// Ends every running loop, and those that start before the outermost has returned. Harmless
    /// when none runs.
    void quitAll();

private:
    std::vector<GMainLoop*> running_;  ///< The innermost is last.
    bool ending_ = false;
};

}  // namespace glintmark::platform
