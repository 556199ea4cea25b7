#include "linux/queues/LinuxDispatchQueues.h"

#include <algorithm>
#include <thread>

namespace glintmark::platform {

namespace {

constexpr std::size_t fewestThreads = 4;
constexpr std::size_t mostThreads = 16;

std::size_t poolThreads() {
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), fewestThreads, mostThreads);
}

}  // namespace

LinuxDispatchQueues::LinuxDispatchQueues()
    : global_("user-initiated", poolThreads(), ThreadPriority::behindMainThread) {}

DispatchQueue& LinuxDispatchQueues::global(QualityOfService /*quality*/) { return global_; }

std::unique_ptr<DispatchQueue> LinuxDispatchQueues::makeSerial(const std::string& label) {
    return std::make_unique<ThreadPoolQueue>(label, 1);
}

}  // namespace glintmark::platform
