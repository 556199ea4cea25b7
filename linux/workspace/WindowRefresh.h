#pragma once

#include <sys/stat.h>

#include <deque>
#include <string>
#include <vector>

#include "linux/bus/SessionBus.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// Makes open windows of file managers read a file's icon again. Main thread only, default main
/// context.
class WindowRefresh {
public:
    explicit WindowRefresh(SessionBus& bus) : bus_(bus) {}

    /// Sets the file's modification time to its whole second. Programs that watch the directory
    /// notice this. `seen` is the status for which the file's thumbnails were made; a file that
    /// changed since then, or another one in its place, keeps its time. False when the system
    /// refuses to set the time.
    static bool dropTimeFraction(const std::string& path, const struct stat& seen);

    /// Signals KDE's directory listers that the file was removed and, 0.3 s later, that it was
    /// added. A window that shows a folder through a symbolic link knows the folder by the link's
    /// path, so `uris` are all addresses of the file.
    void signalChange(const std::vector<std::string>& uris);

    /// True if every signal has been sent.
    bool isIdle() const { return additions_.empty(); }

private:
    struct Addition {
        gint64 due;  ///< Microseconds of GLib's monotonic clock.
        std::string folderURI;
    };

    void emit(const char* name, GVariant* arguments);
    void armTimer();
    void emitDueAdditions();

    SessionBus& bus_;
    std::deque<Addition> additions_;  ///< To be signalled, by due time.
    GSourceId timer_;
};

}  // namespace glintmark::platform
