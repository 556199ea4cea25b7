#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/images/DecodeQueue.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

class DecodeQueueTest : public testing::Test {
protected:
    std::vector<std::string> add(const std::shared_ptr<DecodeLink>& link, const std::string& data,
                                 DecodeSize size = DecodeSize::small) {
        return texts(queue_.add({.data = data, .link = link, .completion = {}}, size));
    }

    std::string take(DecodeSize size = DecodeSize::small) {
        const auto task = queue_.take(size, [](const DecodeLink&) { return true; });
        return task ? task->data : "nothing";
    }

    static std::vector<std::string> texts(const DecodeQueue::Tasks& tasks) {
        std::vector<std::string> texts;
        for (const DecodeTask& task : tasks) {
            texts.push_back(task.data);
        }
        return texts;
    }

    std::shared_ptr<DecodeLink> a_ = std::make_shared<DecodeLink>();
    std::shared_ptr<DecodeLink> b_ = std::make_shared<DecodeLink>();
    DecodeQueue queue_{20};
};

TEST_F(DecodeQueueTest, LinksTakeTurns) {
    add(a_, "a1");
    add(a_, "a2");
    add(a_, "a3");
    add(b_, "b1");
    EXPECT_EQ(take(), "a1");
    EXPECT_EQ(take(), "b1");
    EXPECT_EQ(take(), "a2");
    EXPECT_EQ(take(), "a3");
    EXPECT_EQ(take(), "nothing");
    EXPECT_TRUE(queue_.isEmpty());
}

TEST_F(DecodeQueueTest, OfOneLinkTheShortestFileGoesFirst) {
    add(a_, "long");
    add(a_, "mid");
    add(a_, "s");
    EXPECT_EQ(take(), "s");
    EXPECT_EQ(take(), "mid");
    EXPECT_EQ(take(), "long");
}

TEST_F(DecodeQueueTest, ALinkThatCannotStartKeepsItsTurn) {
    add(a_, "a");
    add(b_, "b");
    const auto task = queue_.take(DecodeSize::small,
                                  [this](const DecodeLink& link) { return &link == b_.get(); });
    EXPECT_EQ(task->data, "b");
    EXPECT_EQ(&queue_.next(DecodeSize::small), a_.get());
    EXPECT_EQ(take(), "a");
}

TEST_F(DecodeQueueTest, SmallAndLargeImagesAreSeparate) {
    add(a_, "large", DecodeSize::large);
    EXPECT_TRUE(queue_.isEmpty(DecodeSize::small));
    EXPECT_EQ(take(), "nothing");
    EXPECT_EQ(take(DecodeSize::large), "large");
}

TEST_F(DecodeQueueTest, BeyondTheMaximumTheGreediestLinkLosesItsLongestImage) {
    add(a_, "short");
    add(a_, "longer");
    add(b_, "b1");
    add(b_, "b2");
    EXPECT_THAT(add(b_, "six..."), ElementsAre("longer"));
    EXPECT_THAT(add(a_, "four", DecodeSize::large), ElementsAre());
    EXPECT_THAT(add(b_, "more"), ElementsAre("six..."));
    EXPECT_EQ(take(), "short");
    EXPECT_EQ(take(), "b1");
}

TEST_F(DecodeQueueTest, BeyondTheMaximumTheOnlyImageOfALinkStays) {
    add(a_, "the longest", DecodeSize::large);
    add(b_, "b1");
    add(b_, "b2...", DecodeSize::large);
    EXPECT_THAT(add(b_, "b3.."), ElementsAre("b2..."));
    EXPECT_EQ(take(DecodeSize::large), "the longest");
}

TEST_F(DecodeQueueTest, IfEachLinkHasOneImageTheLongestLeaves) {
    add(a_, "short");
    EXPECT_THAT(add(b_, "more than all others"), ElementsAre("more than all others"));
    EXPECT_THAT(add(b_, "a few"), ElementsAre());
    EXPECT_EQ(take(), "short");
    EXPECT_EQ(take(), "a few");
}

TEST_F(DecodeQueueTest, TheImagesOfOneLinkCanBeTaken) {
    add(a_, "a");
    add(a_, "large", DecodeSize::large);
    add(b_, "b");
    EXPECT_THAT(texts(queue_.takeAll(*a_)), ElementsAre("a", "large"));
    EXPECT_FALSE(a_->hasWaiting());
    EXPECT_THAT(texts(queue_.takeAll()), ElementsAre("b"));
    EXPECT_TRUE(queue_.isEmpty());
}

}  // namespace
}  // namespace glintmark::platform
