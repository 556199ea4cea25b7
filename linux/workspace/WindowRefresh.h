#pragma once

#include <sys/stat.h>

#include <deque>
#include <string>

#include "linux/bus/SessionBus.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// Makes windows that are open look at a file again. Main thread only, default main context.
class WindowRefresh {
public:
    explicit WindowRefresh(SessionBus& bus) : bus_(bus) {}

    /// Sets the file's modification time to its whole second, which directory watchers report.
    /// `seen` is the status that the file's thumbnails were made from: a file that changed since
    /// keeps its time. False when the system does not let the time be set.
    static bool dropTimeFraction(const std::string& path, const struct stat& seen);

    /// Tells KDE's directory listers that the files went, and, a moment later, came.
    void signalChange(const std::string& path);

private:
    struct Arrival {
        gint64 due;  ///< Microseconds of GLib's monotonic clock.
        std::string folderURI;
    };

    void emit(const char* name, GVariant* arguments);
    void armTimer();
    void emitDueArrivals();

    SessionBus& bus_;
    std::deque<Arrival> arrivals_;  ///< In order of their due times.
    GSourceId timer_;
};

}  // namespace glintmark::platform
