#include "linux/watching/Inotify.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace glintmark::platform {

namespace {

constexpr std::size_t bufferBytes = std::size_t{64} * 1024;  // over a thousand events at once

}  // namespace

std::optional<Inotify> Inotify::make() {
    FileDescriptor descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!descriptor) {
        return std::nullopt;
    }
    return Inotify(std::move(descriptor));
}

Inotify::Inotify(FileDescriptor descriptor)
    : descriptor_(std::move(descriptor)), buffer_(new char[bufferBytes]) {}

int Inotify::add(const std::string& path, std::uint32_t mask) const {
    return ::inotify_add_watch(descriptor_.get(), path.c_str(), mask);
}

void Inotify::remove(int watch) const { ::inotify_rm_watch(descriptor_.get(), watch); }

void Inotify::read(const std::function<void(const InotifyEvent&)>& visit) {
    for (;;) {
        const auto bytes = ::read(descriptor_.get(), buffer_.get(), bufferBytes);
        if (bytes < 0 && errno == EINTR) {
            continue;
        }
        if (bytes <= 0) {
            return;
        }
        for (std::size_t at = 0; at < static_cast<std::size_t>(bytes);) {
            inotify_event event{};
            std::memcpy(&event, buffer_.get() + at, sizeof event);
            const char* name = event.len > 0 ? buffer_.get() + at + sizeof event : "";
            at += sizeof event + event.len;
            visit({event.wd, event.mask, name});
        }
    }
}

}  // namespace glintmark::platform
