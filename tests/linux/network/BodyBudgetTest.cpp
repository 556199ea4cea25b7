#include <gtest/gtest.h>

#include "linux/network/BodyBudget.h"

namespace glintmark::platform {

namespace {

class Body {
public:
    explicit Body(BodyBudget<Body>& budget) : budget_(budget) { budget_.join(*this); }
    ~Body() { budget_.leave(*this); }
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

    void grow(std::size_t bytes) {
        bytes_ += bytes;
        budget_.grown(bytes);
    }
    std::size_t heldBytes() const { return bytes_; }
    void cancel() { bytes_ = 0; }

private:
    BodyBudget<Body>& budget_;
    std::size_t bytes_ = 0;
};

TEST(BodyBudgetTest, TheLargestIsCancelledBeyondTheLimit) {
    BodyBudget<Body> budget(100);
    Body large(budget);
    Body small(budget);
    large.grow(60);
    small.grow(40);
    EXPECT_EQ(large.heldBytes(), 60U);

    small.grow(1);
    EXPECT_EQ(large.heldBytes(), 0U);
    EXPECT_EQ(small.heldBytes(), 41U);
}

TEST(BodyBudgetTest, TheGrowingBodyItselfMayBeCancelled) {
    BodyBudget<Body> budget(100);
    Body other(budget);
    Body large(budget);
    other.grow(30);
    large.grow(71);
    EXPECT_EQ(large.heldBytes(), 0U);
    EXPECT_EQ(other.heldBytes(), 30U);
}

TEST(BodyBudgetTest, ALeavingBodyMakesRoom) {
    BodyBudget<Body> budget(100);
    Body staying(budget);
    staying.grow(50);
    for (int i = 0; i < 3; ++i) {
        Body leaving(budget);
        leaving.grow(50);
        EXPECT_EQ(leaving.heldBytes(), 50U);
    }
    EXPECT_EQ(staying.heldBytes(), 50U);
}

}  // namespace

}  // namespace glintmark::platform
