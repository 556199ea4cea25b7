#include "tests/doubles/TestPlatform.h"

namespace glintmark::doubles {

void PlatformTest::TearDown() {
    queues().runPending();
    EXPECT_EQ(queues().pendingWork(), 0U) << "work is left when the services are destroyed";
    EXPECT_EQ(queues().activeTimers(), 0U) << "a timer is left when the services are destroyed";
}

}  // namespace glintmark::doubles
