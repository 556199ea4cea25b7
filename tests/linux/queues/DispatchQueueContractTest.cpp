#include "linux/glib/GLibHandles.h"
#include "linux/queues/GLibMainQueue.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "tests/base/work/DispatchQueueContract.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/Waiting.h"
#include "tests/support/Subject.h"

namespace glintmark::platform {
namespace {

class LinuxQueueSubject : public DispatchQueueSubject {
public:
    std::chrono::nanoseconds now() override {
        return std::chrono::steady_clock::now().time_since_epoch();
    }
};

class ThreadSubject : public LinuxQueueSubject {
public:
    DispatchQueue& queue() override { return *queue_; }
    void destroyQueue() override { queue_.reset(); }
    bool runUntil(const std::function<bool()>& condition) override { return waitFor(condition); }

private:
    std::unique_ptr<DispatchQueue> queue_ = std::make_unique<ThreadPoolQueue>("contract", 1);
};

class GLibSubject : public LinuxQueueSubject {
public:
    DispatchQueue& queue() override { return *queue_; }
    void destroyQueue() override { queue_.reset(); }
    bool runUntil(const std::function<bool()>& condition) override {
        return waitUntil(condition, context_.get());
    }

private:
    GMainContextHandle context_{g_main_context_new()};
    std::unique_ptr<DispatchQueue> queue_ = std::make_unique<GLibMainQueue>(context_.get());
};

INSTANTIATE_TEST_SUITE_P(SerialThread, DispatchQueueContract,
                         testing::Values(&test::makeSubject<DispatchQueueSubject, ThreadSubject>));
INSTANTIATE_TEST_SUITE_P(GLibMain, DispatchQueueContract,
                         testing::Values(&test::makeSubject<DispatchQueueSubject, GLibSubject>));

}  // namespace
}  // namespace glintmark::platform
