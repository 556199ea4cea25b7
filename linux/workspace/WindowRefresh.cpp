#include "linux/workspace/WindowRefresh.h"

#include <fcntl.h>

#include <algorithm>

#include "linux/files/HeldFile.h"

namespace glintmark::platform {

namespace {

constexpr gint64 additionDelayMicroseconds = 300'000;
constexpr gint64 microsecondsPerMillisecond = 1000;

constexpr auto objectPath = "/";
constexpr auto interfaceName = "org.kde.KDirNotify";

bool isSameVersion(const struct stat& one, const struct stat& other) {
    return one.st_ino == other.st_ino && one.st_dev == other.st_dev &&
           one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
           one.st_mtim.tv_nsec == other.st_mtim.tv_nsec && one.st_size == other.st_size;
}

std::string folderOf(const std::string& uri) { return uri.substr(0, uri.rfind('/')); }

}  // namespace

bool WindowRefresh::dropTimeFraction(const std::string& path, const struct stat& seen) {
    const auto file = HeldFile::at(path);
    if (!file || !isSameVersion(seen, file->status())) {
        return true;
    }
    struct timespec times[2] = {};
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = seen.st_mtim.tv_sec;
    return utimensat(AT_FDCWD, file->procPath().c_str(), times, 0) == 0;
}

void WindowRefresh::signalChange(const std::vector<std::string>& uris) {
    if (bus_.connection() == nullptr) {
        return;
    }
    GVariantBuilder removed;
    g_variant_builder_init(&removed, G_VARIANT_TYPE("as"));
    for (const auto& uri : uris) {
        g_variant_builder_add(&removed, "s", uri.c_str());
        additions_.push_back({g_get_monotonic_time() + additionDelayMicroseconds, folderOf(uri)});
    }
    emit("FilesRemoved", g_variant_new("(as)", &removed));
    if (!timer_) {
        armTimer();
    }
}

void WindowRefresh::emit(const char* name, GVariant* arguments) {
    const GVariantHandle owned(g_variant_ref_sink(arguments));
    if (GDBusConnection* connection = bus_.connection(); connection != nullptr) {
        g_dbus_connection_emit_signal(connection, nullptr, objectPath, interfaceName, name,
                                      owned.get(), nullptr);
    }
}

void WindowRefresh::armTimer() {
    const gint64 wait = std::max<gint64>(additions_.front().due - g_get_monotonic_time(), 0);
    const auto fire = [](gpointer self) -> gboolean {
        static_cast<WindowRefresh*>(self)->timer_.forget();
        static_cast<WindowRefresh*>(self)->emitDueAdditions();
        return G_SOURCE_REMOVE;
    };
    timer_ = GSourceId(g_timeout_add(
        static_cast<guint>((wait + microsecondsPerMillisecond - 1) / microsecondsPerMillisecond),
        fire, this));
}

void WindowRefresh::emitDueAdditions() {
    const gint64 now = g_get_monotonic_time();
    std::string last;
    while (!additions_.empty() && additions_.front().due <= now) {
        // One signal is enough for many files of one folder.
        if (additions_.front().folderURI != last) {
            last = additions_.front().folderURI;
            emit("FilesAdded", g_variant_new("(s)", last.c_str()));
        }
        additions_.pop_front();
    }
    if (!additions_.empty()) {
        armTimer();
    }
}

}  // namespace glintmark::platform
