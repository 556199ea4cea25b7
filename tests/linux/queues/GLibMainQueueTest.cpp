#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "linux/glib/GLibHandles.h"
#include "linux/queues/GLibMainQueue.h"
#include "tests/linux/Waiting.h"
#include "tests/linux/queues/GLibContextFixture.h"

namespace glintmark::platform {
namespace {

class GLibMainQueueTest : public GLibContextFixture {
protected:
    GLibMainQueue queue_{context_.get()};
};

TEST_F(GLibMainQueueTest, WorkFromAnotherThreadWakesTheSleepingLoop) {
    GMainLoopHandle loop(g_main_loop_new(context_.get(), FALSE));
    std::thread other([&] {
        EXPECT_TRUE(waitFor([&] { return g_main_loop_is_running(loop.get()) != FALSE; }));
        queue_.async([&] { g_main_loop_quit(loop.get()); });
    });
    g_main_loop_run(loop.get());
    other.join();
}

TEST_F(GLibMainQueueTest, WorkAlsoRunsInANestedLoop) {
    bool ended = false;
    queue_.async([&] {
        GMainLoopHandle dialog(g_main_loop_new(context_.get(), FALSE));
        queue_.async([&] { g_main_loop_quit(dialog.get()); });
        g_main_loop_run(dialog.get());
        ended = true;
    });
    iterateUntil([&] { return ended; });
}

TEST_F(GLibMainQueueTest, OneIterationRunsOnePieceOfWork) {
    int ran = 0;
    queue_.async([&] { ++ran; });
    queue_.async([&] { ++ran; });
    g_main_context_iteration(context_.get(), FALSE);
    EXPECT_EQ(ran, 1);
}

TEST_F(GLibMainQueueTest, MayBeDestroyedByItsOwnWork) {
    auto queue = std::make_unique<GLibMainQueue>(context_.get());
    bool destroyed = false;
    queue->async([&] {
        queue->async([] { ADD_FAILURE() << "ran"; });
        queue.reset();
        destroyed = true;
    });
    iterateUntil([&] { return destroyed; });
    EXPECT_FALSE(g_main_context_iteration(context_.get(), FALSE));
}

}  // namespace
}  // namespace glintmark::platform
