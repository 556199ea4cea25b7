#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "linux/glib/GLibHandles.h"
#include "linux/queues/UnhurriedTimeout.h"

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

class UnhurriedTimeoutTest : public testing::Test {
protected:
    UnhurriedTimeoutTest() {
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {  // what other tests have left
        }
        g_main_context_set_poll_func(nullptr, countingPoll);
    }
    ~UnhurriedTimeoutTest() override { g_main_context_set_poll_func(nullptr, nullptr); }

    struct Note {
        UnhurriedTimeoutTest* test;
        std::string name;
    };
    static gboolean write(gpointer data) {
        const auto* const note = static_cast<Note*>(data);
        note->test->ran_.push_back(note->name);
        note->test->waitsBefore_.push_back(waits);
        return G_SOURCE_REMOVE;
    }

    void iterateUntilRan(std::size_t count) {
        while (ran_.size() < count) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }

    std::vector<std::string> ran_;
    std::vector<int> waitsBefore_;  // each of them
    Note unhurried_{this, "unhurried"};
    Note other_{this, "other"};
};

TEST_F(UnhurriedTimeoutTest, ComesWithTheFirstWakeUpAfterItsPause) {
    addUnhurriedTimeout(50ms, write, &unhurried_);
    g_timeout_add(75, write, &other_);
    iterateUntilRan(2);
    EXPECT_THAT(ran_, ElementsAre("other", "unhurried"));
    EXPECT_EQ(waitsBefore_[0], waitsBefore_[1]);
}

TEST_F(UnhurriedTimeoutTest, IsNotEarlyForAWakeUpDuringItsPause) {
    const auto begin = Clock::now();
    addUnhurriedTimeout(20ms, write, &unhurried_);
    g_timeout_add(1, write, &other_);
    iterateUntilRan(2);
    EXPECT_EQ(ran_.back(), "unhurried");
    EXPECT_GE(Clock::now() - begin, 20ms);
}

TEST_F(UnhurriedTimeoutTest, ComesByItselfAfterTwiceItsPause) {
    const auto begin = Clock::now();
    addUnhurriedTimeout(10ms, write, &unhurried_);
    iterateUntilRan(1);
    EXPECT_GE(Clock::now() - begin, 20ms);
}

TEST_F(UnhurriedTimeoutTest, ARemovedOneNeverComes) {
    GSourceId source(addUnhurriedTimeout(1ms, write, &unhurried_));
    source.reset();
    g_timeout_add(5, write, &other_);
    iterateUntilRan(1);
    EXPECT_THAT(ran_, ElementsAre("other"));
}

}  // namespace
}  // namespace glintmark::platform
