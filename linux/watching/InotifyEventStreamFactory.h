#pragma once

#include "platform/EventStream.h"

namespace glintmark::platform {

class Log;

/// Makes `InotifyEventStream`s.
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
