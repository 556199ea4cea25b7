#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "linux/glib/GLibHandles.h"
#include "linux/queues/CoalescedTimeout.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::ElementsAre;

/// Counts how often the default main context waits.
int waits = 0;
gint countingPoll(GPollFD* descriptors, guint count, gint timeout) {
    waits += timeout != 0 ? 1 : 0;
    return g_poll(descriptors, count, timeout);
}

class CoalescedTimeoutTest : public testing::Test {
protected:
    CoalescedTimeoutTest() {
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {  // left over from other tests
        }
        g_main_context_set_poll_func(nullptr, countingPoll);
    }
    ~CoalescedTimeoutTest() override { g_main_context_set_poll_func(nullptr, nullptr); }

    struct Entry {
        CoalescedTimeoutTest* test;
        std::string name;
    };
    static gboolean note(gpointer data) {
        const auto* const entry = static_cast<Entry*>(data);
        entry->test->ran_.push_back(entry->name);
        entry->test->waitsBefore_.push_back(waits);
        return G_SOURCE_REMOVE;
    }

    void iterateUntilRan(std::size_t count) {
        while (ran_.size() < count) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }

    std::vector<std::string> ran_;
    std::vector<int> waitsBefore_;  // parallel to ran_
    Entry coalesced_{this, "coalesced"};
    Entry other_{this, "other"};
};

TEST_F(CoalescedTimeoutTest, FiresWithTheFirstWakeUpAfterItsPause) {
    addCoalescedTimeout(50ms, note, &coalesced_);
    g_timeout_add(75, note, &other_);
    iterateUntilRan(2);
    EXPECT_THAT(ran_, ElementsAre("other", "coalesced"));
    EXPECT_EQ(waitsBefore_[0], waitsBefore_[1]);
}

TEST_F(CoalescedTimeoutTest, IgnoresAWakeUpDuringItsPause) {
    const auto begin = Clock::now();
    addCoalescedTimeout(20ms, note, &coalesced_);
    g_timeout_add(1, note, &other_);
    iterateUntilRan(2);
    EXPECT_EQ(ran_.back(), "coalesced");
    EXPECT_GE(Clock::now() - begin, 20ms);
}

TEST_F(CoalescedTimeoutTest, WakesTheLoopAfterTwiceItsPause) {
    const auto begin = Clock::now();
    addCoalescedTimeout(10ms, note, &coalesced_);
    iterateUntilRan(1);
    EXPECT_GE(Clock::now() - begin, 20ms);
}

TEST_F(CoalescedTimeoutTest, ARemovedTimeoutNeverFires) {
    GSourceId source(addCoalescedTimeout(1ms, note, &coalesced_));
    source.reset();
    g_timeout_add(5, note, &other_);
    iterateUntilRan(1);
    EXPECT_THAT(ran_, ElementsAre("other"));
}

}  // namespace
}  // namespace glintmark::platform
