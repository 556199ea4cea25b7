#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace glintmark {
class DispatchQueue;
}  // namespace glintmark

namespace glintmark::platform {

/// A directory in which something changed: an entry was made, removed, moved in or out, renamed,
/// written and closed, or given other attributes. The receiver lists the directory to find the
/// change.
struct DirectoryEvent {
    std::string path;  ///< Absolute; may end in "/".
    std::uint32_t flags = 0;

    bool operator==(const DirectoryEvent&) const = default;
};

/// Set in `DirectoryEvent::flags` when the system lost track of single changes (its queue
/// overflowed): anything below the watched folders may have changed.
inline constexpr std::uint32_t mustScanSubDirs = 0x00000001;

/// Reports changes anywhere below a fixed list of folders.
///
/// The order of calls: create, set the queue, start; later stop, invalidate, destroy. Only one
/// thread may call at a time. It may be the thread of the stream's queue. The handler runs only on
/// the stream's queue, never twice at once, and is not called after `invalidate()` has returned.
class EventStream {
public:
    using Handler = std::function<void(std::span<const DirectoryEvent>)>;

    virtual ~EventStream() = default;

    virtual void setDispatchQueue(DispatchQueue& queue) = 0;  ///< Must outlive `invalidate()`.
    virtual bool start() = 0;  ///< False when the system refuses. The caller may ignore it.
    virtual void stop() = 0;   ///< Later changes are not collected.
    virtual void invalidate() = 0;
};

/// Makes event streams. May be called from any thread.
class EventStreamFactory {
public:
    virtual ~EventStreamFactory() = default;

    /// Watches the trees below `folders`, which need not exist yet. A path that is relative or
    /// empty names no folder and has no effect. Changes before this call are not reported. Changes
    /// are collected for `latency`, counted from the first of a batch, and delivered in one call,
    /// each directory once. Returns at once and walks the trees later. A change in a part that is
    /// not walked yet is reported when the walk reaches that part. Null when the system has no more
    /// streams.
    virtual std::unique_ptr<EventStream> create(std::span<const std::string> folders,
                                                std::chrono::nanoseconds latency,
                                                EventStream::Handler handler) = 0;
};

}  // namespace glintmark::platform
