#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <latch>
#include <thread>

#include "app/AdmissionGate.h"
#include "linux/queues/LinuxDispatchQueues.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/linux/MainLoop.h"

// The gate with runs that enter and leave on real threads.

namespace glintmark {
namespace {

class AdmissionGateThreadsTest : public testing::Test {
private:
    doubles::Fakes fakes_;
    platform::LinuxDispatchQueues queues_;
    platform::Services services_ = fakes_.servicesWith({.dispatchQueues = &queues_});
    platform::ServicesScope scope_{services_};
};

TEST_F(AdmissionGateThreadsTest, EachRunBeginsOnceAndNeverTooManyAtATime) {
    constexpr std::size_t threadCount = 4;
    constexpr int runsPerThread = 100;
    constexpr int places = 3;
    std::atomic<int> active = 0;
    std::atomic<int> tooMany = 0;
    std::atomic<int> ended = 0;
    {
        AdmissionGate gate({.places = places});
        std::latch begin(threadCount);
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < threadCount; ++i) {
            threads.emplace_back([&] {
                begin.arrive_and_wait();
                for (int k = 0; k < runsPerThread; ++k) {
                    gate.enter([&](AdmissionGate::Place place) {
                        tooMany += ++active > places ? 1 : 0;
                        std::this_thread::yield();
                        --active;
                        place.reset();
                        ++ended;
                    });
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_TRUE(platform::waitUntil([&] { return ended == threadCount * runsPerThread; }));
    EXPECT_EQ(tooMany, 0);
}

}  // namespace
}  // namespace glintmark
