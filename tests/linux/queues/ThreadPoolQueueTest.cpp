#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>

#include "linux/queues/ThreadPoolQueue.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/Waiting.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;

TEST(ThreadPoolQueueTest, WorkRunsOnAsManyThreadsAsAllowed) {
    constexpr int most = 4;
    ThreadPoolQueue queue("pool", most);
    std::atomic<int> running = 0;
    std::atomic<bool> release = false;
    std::atomic<int> done = 0;
    for (int i = 0; i < 3 * most; ++i) {
        queue.async([&] {
            ++running;
            EXPECT_TRUE(waitFor([&] { return release.load(); }));
            --running;
            ++done;
        });
    }
    EXPECT_TRUE(waitFor([&] { return running == most; }));
    release = true;
    EXPECT_TRUE(waitFor([&] { return done == 3 * most; }));
}

TEST(ThreadPoolQueueTest, AsManyThreadsWakeUpAsThereIsWorkFor) {
    constexpr int most = 4;
    std::atomic<int> begun = 0;
    std::atomic<int> done = 0;
    ThreadPoolQueue queue("pool", most);
    for (int wanted = most; wanted <= 50 * most; wanted += most) {
        for (int i = 0; i < most; ++i) {
            queue.async([&, wanted] {
                ++begun;
                EXPECT_TRUE(waitFor([&] { return begun >= wanted; }));
                ++done;
            });
        }
        ASSERT_TRUE(waitFor([&] { return done == wanted; }));
    }
}

TEST(ThreadPoolQueueTest, DelayedWorkRunsWhileOtherWorkRuns) {
    ThreadPoolQueue queue("pool", 2);
    std::promise<void> came;
    std::atomic<bool> done = false;
    queue.async([&] {
        came.get_future().wait();
        done = true;
    });
    queue.asyncAfter(5ms, [&] { came.set_value(); });
    EXPECT_TRUE(waitFor([&] { return done.load(); }));
}

TEST(ThreadPoolQueueTest, DelayedWorkCostsNoThreadEach) {
    ThreadPoolQueue queue("delayed-work", 16);
    for (int i = 0; i < 100; ++i) {
        queue.asyncAfter(1h + i * 1s, [] {});
    }
    std::promise<void> ran;
    queue.asyncAfter(1ms, [&] { ran.set_value(); });
    ran.get_future().wait();
    EXPECT_LE(threadsNamed("delayed-work"), 2);  // one ran the work, one watches the clock
}

/// In a process of its own: work that came while no thread could be made runs with the next.
[[noreturn]] void submitWithoutThreads() {
    constexpr uid_t nobody = 65534;
    if (::getuid() == 0 && ::setuid(nobody) != 0) {  // the limit does not bind root
        std::_Exit(2);
    }
    rlimit before{};
    ::getrlimit(RLIMIT_NPROC, &before);
    const rlimit none{0, before.rlim_max};
    ::setrlimit(RLIMIT_NPROC, &none);
    ThreadPoolQueue queue("pool", 1);
    std::promise<void> ran;
    queue.async([] { std::fputs("first, ", stderr); });
    ::setrlimit(RLIMIT_NPROC, &before);
    queue.async([&] {
        std::fputs("second", stderr);
        ran.set_value();
    });
    ran.get_future().wait();
    std::_Exit(0);
}

TEST(ThreadPoolQueueDeathTest, WorkWaitsWhereNoThreadCanBeMade) {
    EXPECT_EXIT(submitWithoutThreads(), testing::ExitedWithCode(0), "^first, second$");
}

TEST(ThreadPoolQueueTest, AnEarlierDueTimeOvertakesALaterOne) {
    ThreadPoolQueue queue("serial", 1);
    std::atomic<bool> ran = false;
    queue.asyncAfter(1h, [] {});
    queue.asyncAfter(1ms, [&] { ran = true; });
    EXPECT_TRUE(waitFor([&] { return ran.load(); }));
}

TEST(ThreadPoolQueueTest, ThreadsMayStandBehindTheMainThreadWhoeverStartsThem) {
    ThreadPoolQueue outer("outer", 1, ThreadPriority::behindMainThread);
    ThreadPoolQueue inner("inner", 1, ThreadPriority::behindMainThread);
    std::promise<int> niceness;
    outer.async([&] { inner.async([&] { niceness.set_value(getpriority(PRIO_PROCESS, 0)); }); });
    const int ofMain = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    EXPECT_EQ(niceness.get_future().get(), ofMain + 5);
}

TEST(ThreadPoolQueueTest, ThreadsShowTheBeginningOfTheLabel) {
    ThreadPoolQueue queue("com.example.program.events", 1);
    queue.async([] {});
    EXPECT_TRUE(waitFor([] { return threadsNamed("com.example.pro") == 1; }));
}

TEST(ThreadPoolQueueTest, DestructionWaitsForRunningWork) {
    std::promise<void> began;
    std::atomic<bool> ended = false;
    {
        ThreadPoolQueue queue("serial", 1);
        queue.async([&] {
            began.set_value();
            std::this_thread::yield();
            ended = true;
        });
        began.get_future().wait();
    }
    EXPECT_TRUE(ended);
}

TEST(ThreadPoolQueueTest, MayBeDestroyedByItsOwnWork) {
    auto queue = std::make_shared<ThreadPoolQueue>("serial", 1);
    std::promise<void> done;
    auto* raw = queue.get();
    raw->async([&done, queue = std::move(queue)]() mutable {
        queue->async([] { ADD_FAILURE() << "ran"; });
        queue.reset();
        done.set_value();
    });
    done.get_future().wait();
}

TEST(ThreadPoolQueueTest, MayBeDestroyedByTheReleaseOfItsOwnWork) {
    auto queue = std::make_shared<ThreadPoolQueue>("serial", 1);
    const std::weak_ptr<ThreadPoolQueue> watched = queue;
    auto* raw = queue.get();
    raw->async([queue = std::move(queue)] {});
    EXPECT_TRUE(waitFor([&] { return watched.expired(); }));
}

}  // namespace
}  // namespace glintmark::platform
