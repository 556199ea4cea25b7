#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "base/work/DispatchQueue.h"
#include "base/work/DispatchWorkItem.h"

namespace glintmark {
namespace {

using namespace std::chrono_literals;

TEST(DispatchWorkItemTest, RunsItsWorkOnce) {
    int runs = 0;
    DispatchWorkItem item([&] { ++runs; });
    EXPECT_EQ(runs, 0);
    item.perform();
    item.perform();
    EXPECT_EQ(runs, 1);
}

TEST(DispatchWorkItemTest, DoesNotRunOnceCancelled) {
    int runs = 0;
    DispatchWorkItem item([&] { ++runs; });
    item.cancel();
    item.cancel();
    item.perform();
    EXPECT_EQ(runs, 0);
}

TEST(DispatchWorkItemTest, MayBeCancelledAfterOrDuringItsWork) {
    int runs = 0;
    std::unique_ptr<DispatchWorkItem> item;
    item = std::make_unique<DispatchWorkItem>([&] {
        item->cancel();
        ++runs;
    });
    item->perform();
    item->cancel();
    EXPECT_EQ(runs, 1);
}

TEST(DispatchWorkItemTest, ReleasesWhatItsWorkOwns) {
    const auto owned = std::make_shared<int>(0);
    DispatchWorkItem performed([copy = owned] {});
    DispatchWorkItem cancelled([copy = owned] {});
    EXPECT_EQ(owned.use_count(), 3);
    performed.perform();
    cancelled.cancel();
    EXPECT_EQ(owned.use_count(), 1);
}

TEST(DispatchWorkItemTest, RunsAtMostOnceWhicheverThreadComesFirst) {
    for (int round = 0; round < 100; ++round) {
        std::atomic<int> runs = 0;
        DispatchWorkItem item([&] { ++runs; });
        std::thread other([&] { item.perform(); });
        item.perform();
        other.join();
        EXPECT_EQ(runs, 1);
    }
}

/// Keeps work for the test to run.
class HoldingQueue : public DispatchQueue {
public:
    void async(Work work) override { held.emplace_back(0ns, std::move(work)); }
    void asyncAfter(std::chrono::nanoseconds delay, Work work) override {
        held.emplace_back(delay, std::move(work));
    }

    std::vector<std::pair<std::chrono::nanoseconds, Work>> held;
};

TEST(DispatchWorkItemTest, AQueueRunsItAfterTheDelayUnlessItIsCancelled) {
    HoldingQueue queue;
    DispatchQueue& contract = queue;  // the derived class hides the overload for items
    int runs = 0;
    const auto kept = std::make_shared<DispatchWorkItem>([&] { runs += 1; });
    const auto cancelled = std::make_shared<DispatchWorkItem>([&] { runs += 10; });
    contract.asyncAfter(500ms, kept);
    contract.asyncAfter(1s, cancelled);
    cancelled->cancel();
    ASSERT_EQ(queue.held.size(), 2U);
    EXPECT_EQ(queue.held[0].first, 500ms);
    EXPECT_EQ(queue.held[1].first, 1s);
    for (const auto& [delay, work] : queue.held) {
        work();
    }
    EXPECT_EQ(runs, 1);
}

}  // namespace
}  // namespace glintmark
