#include <gmock/gmock.h>

#include "linux/network/HostQueue.h"

namespace glintmark::platform {

namespace {

using testing::ElementsAre;

std::vector<std::string> takeAll(HostQueue<std::string>& queue) {
    std::vector<std::string> taken;
    while (auto item = queue.take()) {
        taken.push_back(*item);
    }
    return taken;
}

TEST(HostQueueTest, TheNumberPerHostIsLimited) {
    HostQueue<std::string> queue(2, 10);
    for (const char* item : {"a1", "a2", "a3", "a4"}) {
        queue.push("a", item);
    }
    EXPECT_THAT(takeAll(queue), ElementsAre("a1", "a2"));
    queue.release("a");
    EXPECT_THAT(takeAll(queue), ElementsAre("a3"));
    queue.release("a");
    queue.release("a");
    EXPECT_THAT(takeAll(queue), ElementsAre("a4"));
}

TEST(HostQueueTest, TheNumberInTotalIsLimited) {
    HostQueue<std::string> queue(2, 3);
    for (const char* host : {"a", "b", "c", "d"}) {
        queue.push(host, host);
    }
    EXPECT_THAT(takeAll(queue), ElementsAre("a", "b", "c"));
    queue.release("b");
    EXPECT_THAT(takeAll(queue), ElementsAre("d"));
}

TEST(HostQueueTest, AShareOfTheTotalIsForFirstItemsAndHostsThatAnswer) {
    HostQueue<std::string> queue(3, 6, 2);
    for (const char* item : {"1", "2", "3"}) {
        queue.push("silent", std::string("silent") + item);
        queue.push("still", std::string("still") + item);
    }
    EXPECT_THAT(takeAll(queue), ElementsAre("silent1", "still1", "silent2", "still2"))
        << "two more could run, but not of these hosts";
    for (const char* item : {"1", "2", "3"}) {
        queue.push("lively", std::string("lively") + item);
    }
    EXPECT_THAT(takeAll(queue), ElementsAre("lively1"));
    queue.release("lively", true);
    EXPECT_THAT(takeAll(queue), ElementsAre("lively2", "lively3"));
    EXPECT_FALSE(queue.canTake());
    queue.release("lively", true);
    EXPECT_FALSE(queue.canTake());
    queue.release("silent");
    EXPECT_FALSE(queue.canTake()) << "four of six run, which leaves the share";
}

TEST(HostQueueTest, HostsTakeTurns) {
    HostQueue<std::string> queue(2, 10);
    for (const char* item : {"a1", "a2", "a3"}) {
        queue.push("a", item);
    }
    queue.push("b", "b1");
    queue.push("b", "b2");
    EXPECT_THAT(takeAll(queue), ElementsAre("a1", "b1", "a2", "b2"));
}

TEST(HostQueueTest, AnItemPushedToTheFrontIsTakenBeforeTheOthersOfItsHost) {
    HostQueue<std::string> queue(1, 10);
    queue.push("a", "a1");
    EXPECT_EQ(queue.take(), "a1");
    queue.push("a", "a2");
    queue.pushFront("a", "a1 again");
    queue.release("a");
    EXPECT_THAT(takeAll(queue), ElementsAre("a1 again"));
    queue.release("a");
    EXPECT_THAT(takeAll(queue), ElementsAre("a2"));
}

TEST(HostQueueTest, IsEmptyIfNothingWaitsOrRuns) {
    HostQueue<std::string> queue(1, 10);
    EXPECT_TRUE(queue.empty());
    queue.push("a", "a1");
    EXPECT_FALSE(queue.empty());
    queue.take();
    EXPECT_FALSE(queue.empty());
    queue.release("a");
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.take(), std::nullopt);
}

}  // namespace

}  // namespace glintmark::platform
