#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>

#include "linux/glib/GLibHandles.h"
#include "platform/OpenPanel.h"

namespace glintmark::platform {

/// A dialog that a separate program shows, zenity or kdialog. Destroying this ends the program.
/// Main thread only.
class DialogProgram {
public:
    using Done = std::function<void(OpenPanel::Result)>;

    /// Null if neither program is installed. `done` runs once, from the main loop.
    static std::unique_ptr<DialogProgram> start(const OpenPanel::Settings& settings, Done done);

    ~DialogProgram();
    DialogProgram(const DialogProgram&) = delete;
    DialogProgram& operator=(const DialogProgram&) = delete;

private:
    DialogProgram(GObjectHandle<GSubprocess> process, Done done);

    void ended(GBytes* output);

    GObjectHandle<GSubprocess> process_;
    GObjectHandle<GCancellable> cancellable_;
    Done done_;
};

}  // namespace glintmark::platform
