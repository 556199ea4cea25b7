#include "linux/queues/LinuxDispatchQueues.h"

#include <algorithm>
#include <thread>

namespace glintmark::platform {

namespace {

constexpr std::size_t minimumThreads = 4;
constexpr std::size_t maximumThreads = 16;

std::size_t poolThreads() {
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), minimumThreads,
                                   maximumThreads);
}

}  // namespace

LinuxDispatchQueues::LinuxDispatchQueues()
    : global_("user-initiated", poolThreads(), ThreadPriority::belowMainThread) {}

DispatchQueue& LinuxDispatchQueues::global(QualityOfService /*quality*/) { return global_; }

std::unique_ptr<DispatchQueue> LinuxDispatchQueues::makeSerial(const std::string& label) {
    return std::make_unique<ThreadPoolQueue>(label, 1);
}

}  // namespace glintmark::platform
