#include <gtest/gtest.h>

#include <vector>

#include "base/work/DispatchGroup.h"
#include "base/work/DispatchQueue.h"

namespace glintmark {
namespace {

/// Runs work at once, on the caller's thread.
class ImmediateQueue : public DispatchQueue {
public:
    void async(Work work) override { work(); }
    void asyncAfter(std::chrono::nanoseconds, Work work) override { work(); }
};

TEST(DispatchGroupTest, NotifiesWhenTheLastWorkLeaves) {
    ImmediateQueue queue;
    const DispatchGroup group;
    int notified = 0;
    group.enter();
    group.enter();
    group.notify(queue, [&] { ++notified; });
    group.leave();
    EXPECT_EQ(notified, 0);
    group.leave();
    EXPECT_EQ(notified, 1);
}

TEST(DispatchGroupTest, NotifiesAtOnceWhenNothingRuns) {
    ImmediateQueue queue;
    const DispatchGroup group;
    int notified = 0;
    group.notify(queue, [&] { ++notified; });
    EXPECT_EQ(notified, 1);
}

TEST(DispatchGroupTest, NotifiesOnlyOnce) {
    ImmediateQueue queue;
    const DispatchGroup group;
    int notified = 0;
    group.enter();
    group.notify(queue, [&] { ++notified; });
    group.leave();
    group.enter();
    group.leave();
    EXPECT_EQ(notified, 1);
}

TEST(DispatchGroupDeathTest, LeavingMoreOftenThanEnteringEndsTheProcess) {
    const DispatchGroup group;
    group.enter();
    group.leave();
    EXPECT_DEATH(group.leave(), "Unbalanced call to DispatchGroup::leave");
}

}  // namespace
}  // namespace glintmark
