#pragma once

#include "linux/queues/GLibMainQueue.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "platform/DispatchQueues.h"

namespace glintmark::platform {

/// The main thread's GLib queue, one global pool with a thread for each core (at least 4, at most
/// 16), and serial queues of one thread each. Create and destroy it on the main thread.
class LinuxDispatchQueues : public DispatchQueues {
public:
    LinuxDispatchQueues();

    DispatchQueue& main() override { return main_; }
    DispatchQueue& global(QualityOfService quality) override;
    std::unique_ptr<DispatchQueue> makeSerial(const std::string& label) override;

private:
    GLibMainQueue main_;
    ThreadPoolQueue global_;
};

}  // namespace glintmark::platform
