#include "linux/queues/LinuxDispatchQueues.h"

#include <algorithm>
#include <thread>

#include "platform/Log.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t minimumThreads = 4;
constexpr std::size_t maximumThreads = 16;
constexpr std::size_t maximumLostGlobalThreads = 64;  // so as many link files may hang
constexpr std::size_t maximumLostSerialThreads = 16;  // of each serial queue

std::size_t poolThreads() {
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), minimumThreads,
                                   maximumThreads);
}

}  // namespace

LinuxDispatchQueues::LinuxDispatchQueues(Log* log)
    : log_(log),
      global_("user-initiated", poolThreads(),
              optionsWith(ThreadPriority::belowMainThread, maximumLostGlobalThreads)) {}

ThreadPoolQueue::Options LinuxDispatchQueues::optionsWith(ThreadPriority priority,
                                                          std::size_t maximumLostThreads) {
    return {priority, maximumLostThreads, [log = log_, hasNotedLoss = hasNotedLoss_] {
                if (log != nullptr && !hasNotedLoss->test_and_set()) {
                    log->debug("A file system does not answer. Other threads go on meanwhile.");
                }
            }};
}

DispatchQueue& LinuxDispatchQueues::global(QualityOfService /*quality*/) { return global_; }

std::unique_ptr<DispatchQueue> LinuxDispatchQueues::makeSerial(const std::string& label) {
    return std::make_unique<ThreadPoolQueue>(
        label, 1, optionsWith(ThreadPriority::normal, maximumLostSerialThreads));
}

}  // namespace glintmark::platform
