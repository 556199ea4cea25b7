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

/// A directory in which something changed. The receiver lists it to learn what.
struct DirectoryEvent {
    std::string path;  ///< Absolute; may end in "/".
    std::uint32_t flags = 0;

    bool operator==(const DirectoryEvent&) const = default;
};

/// Set in `DirectoryEvent::flags` when the system lost track of single changes (its queue
/// overflowed): anything below the watched folders may have changed.
inline constexpr std::uint32_t mustScanSubDirs = 0x00000001;

/// A live report of changes anywhere below a fixed list of folders.
///
/// Create, set the queue, start; later stop, invalidate, destroy, in that order. The calls come
/// from one thread at a time, the stream's queue included. The handler runs only on the stream's
/// queue, never twice at once, and does not begin after `invalidate()` has returned.
class EventStream {
public:
    using Handler = std::function<void(std::span<const DirectoryEvent>)>;

    virtual ~EventStream() = default;

    virtual void setDispatchQueue(DispatchQueue& queue) = 0;  ///< Must outlive `invalidate()`.
    virtual bool start() = 0;  ///< False when the system refuses; harmless to ignore.
    virtual void stop() = 0;   ///< No further changes are gathered.
    virtual void invalidate() = 0;
};

/// Makes event streams. May be called from any thread.
class EventStreamFactory {
public:
    virtual ~EventStreamFactory() = default;

    /// Watches the trees below `folders`, which need not exist (yet). Only changes after this call
    /// count. Changes are gathered for `latency`, counted from the first of a batch, and delivered
    /// as one call, each directory once. Returns at once, before large trees are walked; what
    /// changes in a part of a tree before the walk has reached it is reported when it does. Null
    /// when the system has no more streams to give.
    virtual std::unique_ptr<EventStream> create(std::span<const std::string> folders,
                                                std::chrono::nanoseconds latency,
                                                EventStream::Handler handler) = 0;
};

}  // namespace glintmark::platform
