#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "linux/queues/LinuxDispatchQueues.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/Waiting.h"

namespace glintmark::platform {
namespace {

TEST(LinuxDispatchQueuesTest, TheGlobalQueueRunsAtLeastFourPiecesOfWorkAtOnce) {
    std::atomic<int> running = 0;
    LinuxDispatchQueues queues;  // after `running`: its destructor waits for the work
    for (int i = 0; i < 4; ++i) {
        queues.global(QualityOfService::userInitiated).async([&] {
            ++running;
            EXPECT_TRUE(waitFor([&] { return running == 4; }));
        });
    }
    EXPECT_TRUE(waitFor([&] { return running == 4; }));
}

TEST(LinuxDispatchQueuesTest, ASerialQueueRunsOnAThreadThatShowsItsLabel) {
    LinuxDispatchQueues queues;
    const auto queue = queues.makeSerial("watcher-events");
    queue->async([] {});
    EXPECT_TRUE(waitFor([] { return threadsNamed("watcher-events") == 1; }));
}

TEST(LinuxDispatchQueuesTest, TheMainQueueRunsInTheDefaultContext) {
    LinuxDispatchQueues queues;
    std::thread::id ranOn;
    queues.main().async([&] { ranOn = std::this_thread::get_id(); });
    EXPECT_TRUE(waitUntil([&] { return ranOn == std::this_thread::get_id(); }));
}

}  // namespace
}  // namespace glintmark::platform
