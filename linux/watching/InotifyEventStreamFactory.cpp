#include "linux/watching/InotifyEventStreamFactory.h"

#include <utility>

#include "linux/watching/InotifyEventStream.h"

namespace glintmark::platform {

std::unique_ptr<EventStream> InotifyEventStreamFactory::create(std::span<const std::string> folders,
                                                               std::chrono::nanoseconds latency,
                                                               EventStream::Handler handler) {
    return InotifyEventStream::make(folders, latency, std::move(handler), log_);
}

}  // namespace glintmark::platform
