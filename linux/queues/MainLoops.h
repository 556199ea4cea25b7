#pragma once

#include <glib.h>

#include <vector>

namespace glintmark::platform {

/// The nested main loops of the main thread: the program's own and, inside it, those of modal
/// dialogs. When the program ends, they all end.
class MainLoops {
public:
    MainLoops() = default;
    MainLoops(const MainLoops&) = delete;
    MainLoops& operator=(const MainLoops&) = delete;

    /// Runs `loop` until it is quit. Returns at once if the program is ending.
    void run(GMainLoop* loop);

    /// Quits every running loop. A loop that starts before the outermost has returned ends at once.
    /// Does nothing if no loop runs.
    void quitAll();

private:
    std::vector<GMainLoop*> running_;  ///< Innermost last.
    bool ending_ = false;
};

}  // namespace glintmark::platform
