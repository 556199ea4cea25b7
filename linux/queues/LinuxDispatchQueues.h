#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "linux/queues/GLibMainQueue.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "platform/DispatchQueues.h"

namespace glintmark::platform {

class Log;

/// The main thread's GLib queue, one global pool with a thread for each core (at least 4, at most
/// 16), and serial queues of one thread each. A few more threads replace those that are lost in a
/// `BlockingSection`. Create and destroy it on the main thread.
class LinuxDispatchQueues : public DispatchQueues {
public:
    /// The first lost thread is noted in `log` at debug level, unless that is null.
    explicit LinuxDispatchQueues(Log* log = nullptr);

    DispatchQueue& main() override { return main_; }
    DispatchQueue& global(QualityOfService quality) override;
    std::unique_ptr<DispatchQueue> makeSerial(const std::string& label) override;

private:
    ThreadPoolQueue::Options optionsWith(ThreadPriority priority, std::size_t maximumLostThreads);

    Log* const log_;
    const std::shared_ptr<std::atomic_flag> hasNotedLoss_ = std::make_shared<std::atomic_flag>();
    GLibMainQueue main_;
    ThreadPoolQueue global_;
};

}  // namespace glintmark::platform
