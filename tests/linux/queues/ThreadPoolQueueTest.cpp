#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>
#include <vector>

#include "linux/queues/BlockingSection.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/Unprivileged.h"
#include "tests/linux/Waiting.h"
#include "tests/support/Event.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;

TEST(ThreadPoolQueueTest, WorkRunsOnAsManyThreadsAsAllowed) {
    constexpr int maximum = 4;
    ThreadPoolQueue queue("pool", maximum);
    std::atomic<int> running = 0;
    std::atomic<bool> release = false;
    std::atomic<int> done = 0;
    for (int i = 0; i < 3 * maximum; ++i) {
        queue.async([&] {
            ++running;
            EXPECT_TRUE(waitFor([&] { return release.load(); }));
            --running;
            ++done;
        });
    }
    EXPECT_TRUE(waitFor([&] { return running == maximum; }));
    release = true;
    EXPECT_TRUE(waitFor([&] { return done == 3 * maximum; }));
}

TEST(ThreadPoolQueueTest, AsManyThreadsWakeUpAsHaveWork) {
    constexpr int maximum = 4;
    std::atomic<int> begun = 0;
    std::atomic<int> done = 0;
    ThreadPoolQueue queue("pool", maximum);
    for (int wanted = maximum; wanted <= 50 * maximum; wanted += maximum) {
        for (int i = 0; i < maximum; ++i) {
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
    std::promise<void> due;
    std::atomic<bool> done = false;
    queue.async([&] {
        due.get_future().wait();
        done = true;
    });
    queue.asyncAfter(5ms, [&] { due.set_value(); });
    EXPECT_TRUE(waitFor([&] { return done.load(); }));
}

TEST(ThreadPoolQueueTest, DelayedWorkTakesNoThreads) {
    ThreadPoolQueue queue("delayed-work", 16);
    for (int i = 0; i < 100; ++i) {
        queue.asyncAfter(1h + i * 1s, [] {});
    }
    std::promise<void> ran;
    queue.asyncAfter(1ms, [&] { ran.set_value(); });
    ran.get_future().wait();
    EXPECT_LE(threadsNamed("delayed-work"), 2);  // one ran the work, one watches the clock
}

/// Runs in a separate process. Work that is submitted while no thread can be made runs when the
/// next work is submitted.
[[noreturn]] void submitWithoutThreads() {
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

TEST(ThreadPoolQueueDeathTest, WorkWaitsIfNoThreadCanBeMade) {
    EXPECT_EXIT(submitWithoutThreads(), testing::ExitedWithCode(0), "^first, second$");
}

TEST(ThreadPoolQueueTest, AnEarlierDueTimeOvertakesALaterOne) {
    ThreadPoolQueue queue("serial", 1);
    std::atomic<bool> ran = false;
    queue.asyncAfter(1h, [] {});
    queue.asyncAfter(1ms, [&] { ran = true; });
    EXPECT_TRUE(waitFor([&] { return ran.load(); }));
}

TEST(ThreadPoolQueueTest, LowPriorityIsRelativeToTheMainThreadEvenInNestedPools) {
    ThreadPoolQueue outer("outer", 1, {.priority = ThreadPriority::belowMainThread});
    ThreadPoolQueue inner("inner", 1, {.priority = ThreadPriority::belowMainThread});
    std::promise<int> niceness;
    outer.async([&] { inner.async([&] { niceness.set_value(getpriority(PRIO_PROCESS, 0)); }); });
    const int nicenessOfMain = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    EXPECT_EQ(niceness.get_future().get(), nicenessOfMain + 5);
}

TEST(ThreadPoolQueueTest, ThreadsAreNamedByTheBeginningOfTheLabel) {
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

/// Work that is inside a section until it is released, as a call that does not return.
class HeldWork {
public:
    DispatchQueue::Work work() {
        return [state = state_] {
            {
                const BlockingSection section;
                ++state->inside;
                EXPECT_TRUE(state->released.wait());
            }
            ++state->returned;
        };
    }
    void release() { state_->released.set(); }
    int inside() const { return state_->inside; }
    int returned() const { return state_->returned; }

private:
    struct State {
        test::Event released;
        std::atomic<int> inside = 0;
        std::atomic<int> returned = 0;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

TEST(BlockingSectionTest, OtherWorkGoesOnWhileAllThreadsAreInsideSections) {
    constexpr int maximum = 4;
    HeldWork held;
    std::atomic<int> done = 0;
    std::atomic<int> losses = 0;
    ThreadPoolQueue queue("pool", maximum, {.onLoss = [&] { ++losses; }});
    for (int i = 0; i < 3 * maximum; ++i) {
        queue.async(held.work());
    }
    for (int i = 0; i < 100; ++i) {
        queue.async([&] { ++done; });
    }
    EXPECT_TRUE(waitFor([&] { return done == 100; }));
    EXPECT_EQ(held.inside(), 3 * maximum);
    EXPECT_GE(losses, 1);
    held.release();
    EXPECT_TRUE(waitFor([&] { return held.returned() == 3 * maximum; }));
}

TEST(BlockingSectionTest, DelayedWorkThatIsDueLaterGoesOnToo) {
    HeldWork held;
    test::Event ran;
    ThreadPoolQueue queue("pool", 1);
    queue.asyncAfter(300ms, [&] { ran.set(); });
    queue.async(held.work());
    EXPECT_TRUE(ran.wait());
    EXPECT_EQ(held.returned(), 0);
    held.release();
    EXPECT_TRUE(waitFor([&] { return held.returned() == 1; }));
}

TEST(BlockingSectionTest, ASerialQueueNeverRunsTwoPiecesOfWorkAtOnce) {
    HeldWork held;
    std::atomic<int> running = 0;
    std::atomic<int> most = 0;
    std::atomic<int> done = 0;
    std::atomic<bool> isReturning = false;
    ThreadPoolQueue queue("serial", 1);
    const auto enter = [&] { most = std::max<int>(most, ++running); };
    const auto leave = [&] {
        std::this_thread::yield();
        --running;
        ++done;
    };
    queue.async([&, work = held.work()] {
        work();
        isReturning = true;
        enter();
        leave();
    });
    constexpr int pieces = 2000;
    for (int i = 0; i < pieces; ++i) {
        queue.async([&, i] {
            if (i == 0) {
                held.release();  // while this work has the only place
            }
            enter();
            leave();
        });
    }
    EXPECT_TRUE(waitFor([&] { return done == pieces + 1; }));
    EXPECT_TRUE(isReturning);
    EXPECT_EQ(most, 1);
}

TEST(BlockingSectionTest, AThreadThatReturnsGetsThePlaceOfOneThatIsLostLater) {
    HeldWork first;
    HeldWork second;
    std::atomic<bool> between = false;
    ThreadPoolQueue queue("serial", 1);
    queue.async(first.work());
    queue.async([&] { between = true; });
    EXPECT_TRUE(waitFor([&] { return between.load(); }));
    queue.async(second.work());
    EXPECT_TRUE(waitFor([&] { return second.inside() == 1; }));
    first.release();
    EXPECT_TRUE(waitFor([&] { return first.returned() == 1; }));
    EXPECT_EQ(second.returned(), 0);
    second.release();
    EXPECT_TRUE(waitFor([&] { return second.returned() == 1; }));
}

TEST(BlockingSectionTest, LostThreadsAreBoundedInNumberAndEndWhenTheyAreNotNeeded) {
    HeldWork held;
    std::atomic<bool> ran = false;
    std::atomic<int> losses = 0;
    ThreadPoolQueue queue("bounded", 2, {.maximumLostThreads = 3, .onLoss = [&] { ++losses; }});
    for (int i = 0; i < 20; ++i) {
        queue.async(held.work());
    }
    queue.async([&] { ran = true; });
    EXPECT_TRUE(waitFor([&] { return held.inside() == 5; }));  // two places and three more
    EXPECT_EQ(threadsNamed("bounded"), 5U);
    EXPECT_FALSE(ran);
    held.release();
    EXPECT_TRUE(waitFor([&] { return ran.load(); }));
    EXPECT_TRUE(waitFor([&] { return held.returned() == 20; }));
    EXPECT_TRUE(waitFor([&] { return threadsNamed("bounded") <= 2; }));
}

TEST(BlockingSectionTest, ShortSectionsAddNoThreads) {
    ThreadPoolQueue queue("short", 1);
    std::atomic<int> done = 0;
    std::size_t most = 0;
    for (int i = 0; i < 1000; ++i) {
        queue.async([&] {
            { const BlockingSection section; }
            most = std::max(most, threadsNamed("short"));
            ++done;
        });
    }
    EXPECT_TRUE(waitFor([&] { return done == 1000; }));
    // One stands by. A loaded machine may pause a few sections for longer than the patience.
    EXPECT_LE(most, 10U);
}

TEST(BlockingSectionTest, AQueueCanBeDestroyedWhileAThreadIsLost) {
    HeldWork held;
    {
        ThreadPoolQueue queue("serial", 1);
        queue.async(held.work());
        EXPECT_TRUE(waitFor([&] { return held.inside() == 1; }));
    }
    EXPECT_EQ(held.returned(), 0);
    held.release();
    EXPECT_TRUE(waitFor([&] { return held.returned() == 1; }));
}

TEST(BlockingSectionTest, ASectionOnAnyOtherThreadDoesNothing) {
    const BlockingSection section;
    SUCCEED();
}

}  // namespace
}  // namespace glintmark::platform
