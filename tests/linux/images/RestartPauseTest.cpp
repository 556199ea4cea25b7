#include <gtest/gtest.h>

#include "linux/images/RestartPause.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;

TEST(RestartPauseTest, TheFirstStartIsImmediate) {
    EXPECT_TRUE(RestartPause().mayStart(RestartPause::Clock::time_point{}));
}

TEST(RestartPauseTest, TheStartAfterTheFirstDeathIsImmediate) {
    RestartPause pause;
    const RestartPause::Clock::time_point now{1h};
    pause.died(now);
    EXPECT_TRUE(pause.mayStart(now));
}

TEST(RestartPauseTest, PausesDoubleFromOneSecondToFiveMinutes) {
    RestartPause pause;
    RestartPause::Clock::time_point now{1h};
    pause.died(now);
    for (const auto expected : {1s, 2s, 4s, 8s, 16s, 32s, 64s, 128s, 256s, 300s, 300s}) {
        pause.died(now);
        EXPECT_FALSE(pause.mayStart(now + expected - 1ms)) << expected.count();
        EXPECT_TRUE(pause.mayStart(now + expected)) << expected.count();
        now += expected;
    }
}

TEST(RestartPauseTest, AfterWorkTheNextDeathCountsAsTheFirst) {
    RestartPause pause;
    const RestartPause::Clock::time_point now{1h};
    for (int i = 0; i < 5; ++i) {
        pause.died(now);
    }
    EXPECT_FALSE(pause.mayStart(now));
    pause.worked();
    EXPECT_TRUE(pause.mayStart(now));
    pause.died(now);
    EXPECT_TRUE(pause.mayStart(now));
    pause.died(now);
    EXPECT_FALSE(pause.mayStart(now));
}

}  // namespace
}  // namespace glintmark::platform
