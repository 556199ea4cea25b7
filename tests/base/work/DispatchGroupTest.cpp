#include <gtest/gtest.h>

#include "base/work/DispatchGroup.h"
#include "tests/support/TestQueues.h"

namespace glintmark {
namespace {

TEST(DispatchGroupTest, NotifiesWhenTheLastWorkLeaves) {
    test::InlineQueue queue;
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
    test::InlineQueue queue;
    const DispatchGroup group;
    int notified = 0;
    group.notify(queue, [&] { ++notified; });
    EXPECT_EQ(notified, 1);
}

TEST(DispatchGroupTest, NotifiesOnlyOnce) {
    test::InlineQueue queue;
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
