#pragma once

#include <sys/inotify.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/system/FileDescriptor.h"

namespace glintmark::platform {

/// One event of inotify(7).
struct InotifyEvent {
    int watch;  ///< -1 for a queue overflow.
    std::uint32_t mask;
    std::string_view name;  ///< Empty when the event is about the watched directory itself.
};

/// An inotify instance. One thread at a time.
class Inotify {
public:
    /// Absent when the user has no instances left.
    static std::optional<Inotify> make();

    int descriptor() const { return descriptor_.get(); }

    /// Watches the file at `path` and returns the watch: the same number as before if the file is
    /// watched already, -1 with `errno` set if it cannot be watched.
    int add(const std::string& path, std::uint32_t mask) const;
    void remove(int watch) const;

    /// Calls `visit` with each event that has arrived since the last call, in order. Does not wait.
    void read(const std::function<void(const InotifyEvent&)>& visit);

private:
    explicit Inotify(FileDescriptor descriptor);

    FileDescriptor descriptor_;
    std::unique_ptr<char[]> buffer_;
};

}  // namespace glintmark::platform
