#include <gtest/gtest.h>

#include "linux/images/RestartPause.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;

TEST(RestartPauseTest, TheFirstStartIsImmediate) {
    EXPECT_LE(RestartPause().end(), RestartPause::Clock::time_point{});
}

TEST(RestartPauseTest, TheStartAfterTheFirstDeathIsImmediate) {
    RestartPause pause;
    const RestartPause::Clock::time_point now{1h};
    pause.died(now);
    EXPECT_LE(pause.end(), now);
}

TEST(RestartPauseTest, PausesDoubleFromOneSecondToFiveMinutes) {
    RestartPause pause;
    RestartPause::Clock::time_point now{1h};
    pause.died(now);
    for (const auto expected : {1s, 2s, 4s, 8s, 16s, 32s, 64s, 128s, 256s, 300s, 300s}) {
        pause.died(now);
        EXPECT_EQ(pause.end(), now + expected) << expected.count();
        now += expected;
    }
}

TEST(RestartPauseTest, AfterAQuietTimeTheNextDeathCountsAsTheFirst) {
    RestartPause pause;
    RestartPause::Clock::time_point now{1h};
    for (int i = 0; i < 5; ++i) {
        pause.died(now);
    }
    EXPECT_GT(pause.end(), now);
    now += 10min - 1s;
    pause.died(now);
    EXPECT_GT(pause.end(), now);
    now += 10min;
    pause.died(now);
    EXPECT_EQ(pause.end(), now);
}

}  // namespace
}  // namespace glintmark::platform
