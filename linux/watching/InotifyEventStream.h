#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/EventStream.h"

namespace glintmark::platform {

class Log;

/// Reports changes below folders by inotify(7), with one watch for each directory. The stream's own
/// thread does all the watching, the first walk of the trees included. It sleeps while nothing
/// happens.
///
/// A directory that appears, or becomes readable, is itself reported, with each directory below it
/// that was not watched before, so that nothing made there before the watch is lost. If the
/// directory has moved, all below it is reported, because it has new paths. Paths begin with the
/// folder as it was given.
class InotifyEventStream : public EventStream {
public:
    /// Null when the system has no inotify instance, descriptor or thread left. `log` must outlive
    /// the stream; it gets a debug line when the system has fewer watches than there are
    /// directories.
    static std::unique_ptr<InotifyEventStream> make(std::span<const std::string> folders,
                                                    std::chrono::nanoseconds latency,
                                                    Handler handler, Log& log);

    /// Stops and invalidates the stream, if the owner has not.
    ~InotifyEventStream() override;

    void setDispatchQueue(DispatchQueue& queue) override;

    /// If the stream was stopped before, only changes after this call count.
    bool start() override;

    /// Returns at once; the thread ends later.
    void stop() override;

    /// Waits for a running handler, unless that handler is the caller.
    void invalidate() override;

private:
    class Delivery;
    struct Link;
    class Watcher;

    InotifyEventStream(std::span<const std::string> folders, std::chrono::nanoseconds latency,
                       Handler handler, Log& log);

    bool launch();

    const std::vector<std::string> folders_;
    const std::chrono::nanoseconds latency_;
    Log& log_;
    DispatchQueue* queue_ = nullptr;
    const std::shared_ptr<Delivery> delivery_;
    std::shared_ptr<Link> link_;  // shared with the thread; null while stopped
};

/// The program's event streams.
class InotifyEventStreamFactory : public EventStreamFactory {
public:
    /// `log` must outlive the streams.
    explicit InotifyEventStreamFactory(Log& log) : log_(log) {}

    std::unique_ptr<EventStream> create(std::span<const std::string> folders,
                                        std::chrono::nanoseconds latency,
                                        EventStream::Handler handler) override;

private:
    Log& log_;
};

}  // namespace glintmark::platform
