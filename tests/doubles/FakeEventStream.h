#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/EventStream.h"

namespace glintmark::doubles {

/// One stream that was made. The record outlives the stream.
struct StreamRecord {
    std::vector<std::string> folders;
    std::chrono::nanoseconds latency{0};
    std::vector<std::string> calls;  ///< "setDispatchQueue", "start", "stop", "invalidate",
                                     ///< "destroy", in order.
    std::function<void()> onStop;    ///< Runs within `stop()`, as a change at that moment would.

    bool isInvalidated = false;
    bool isDestroyed = false;
    DispatchQueue* queue = nullptr;
    platform::EventStream::Handler handler;
};

/// Makes streams whose changes the test reports. Using a stream against its contract fails the
/// test.
class FakeEventStreamFactory final : public platform::EventStreamFactory {
public:
    std::unique_ptr<platform::EventStream> create(std::span<const std::string> folders,
                                                  std::chrono::nanoseconds latency,
                                                  platform::EventStream::Handler handler) override;

    void refuseCreation() { refuses_ = true; }
    void refuseStart() { refusesStart_ = true; }

    /// All streams made so far, oldest first.
    std::size_t streamCount() const { return records_.size(); }
    StreamRecord& stream(std::size_t index) { return *records_.at(index); }

    /// Delivers changes as one call on the queue of the newest stream, when that queue runs.
    void report(const std::string& path, std::uint32_t flags = 0);
    void report(std::vector<platform::DirectoryEvent> events);

private:
    std::vector<std::shared_ptr<StreamRecord>> records_;
    bool refuses_ = false;
    bool refusesStart_ = false;
};

}  // namespace glintmark::doubles
