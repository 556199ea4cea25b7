#include "tests/doubles/TestPlatform.h"

namespace glintmark::doubles {

void PlatformTest::TearDown() {
    queues().runPending();
    EXPECT_EQ(queues().pendingWork(), 0U) << "work is left where the services go away";
    EXPECT_EQ(queues().activeTimers(), 0U) << "a timer is left where the services go away";
}

}  // namespace glintmark::doubles
