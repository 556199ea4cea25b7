#pragma once

#include <poll.h>

#include <chrono>
#include <memory>
#include <span>
#include <vector>

namespace glintmark::platform {

/// Work that takes turns with other work on one thread, which waits for all of it at once, like a
/// GSource of GLib. The functions are called on that thread.
class LoopSource {
public:
    using Time = std::chrono::steady_clock::time_point;

    virtual ~LoopSource() = default;

    /// Does all work that needs no waiting, but none that takes long: the other work waits
    /// meanwhile. False if the source has ended; the thread then drops it.
    virtual bool dispatch() = 0;

    /// Appends descriptors that the thread shall wait for, each with POLLIN, and returns until when
    /// it may wait.
    virtual Time prepare(std::vector<pollfd>& watched) = 0;

    /// Called after a wait with what `prepare` has appended, and what poll(2) found there: POLLHUP,
    /// too, if the other end is closed.
    virtual void check(std::span<const pollfd> watched) = 0;
};

/// The thread that sources take turns on. Any thread may call.
class SourceLoop {
public:
    virtual ~SourceLoop() = default;

    /// Runs `source` until it has ended. False if the system has no thread left.
    virtual bool attach(std::shared_ptr<LoopSource> source) = 0;

    /// Ends the running wait, or the next one, so that each source gets a turn.
    virtual void wake() = 0;
};

}  // namespace glintmark::platform
