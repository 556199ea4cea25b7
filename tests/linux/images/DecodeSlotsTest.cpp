#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "linux/images/DecodeSlots.h"
#include "tests/linux/Waiting.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;

/// Takes a slot on a separate thread, so that a test can see if it blocks.
template <typename Hold>
class Taker {
public:
    explicit Taker(std::function<Hold()> take)
        : thread_([this, take = std::move(take)] {
              hold_ = take();
              has_ = true;
          }) {}
    ~Taker() { thread_.join(); }
    Taker(const Taker&) = delete;
    Taker& operator=(const Taker&) = delete;

    bool has() const { return has_; }
    bool gets() const {
        return waitFor([this] { return has_.load(); });
    }

private:
    Hold hold_;
    std::atomic<bool> has_ = false;
    std::thread thread_;
};

using SmallTaker = Taker<DecodeSlots::Hold>;
using LargeTaker = Taker<DecodeSlots::LargeHold>;

class DecodeSlotsTest : public testing::Test {
protected:
    std::unique_ptr<SmallTaker> small() {
        return std::make_unique<SmallTaker>([this] { return slots_->takeSmall(); });
    }
    std::unique_ptr<LargeTaker> large() {
        return std::make_unique<LargeTaker>([this] { return slots_->takeLarge(); });
    }

    std::shared_ptr<DecodeSlots> slots_ = std::make_shared<DecodeSlots>(24h);
};

TEST_F(DecodeSlotsTest, TwoSmallImagesAreDecodedAtATime) {
    auto first = slots_->takeSmall();
    auto second = slots_->takeSmall();
    const auto third = small();
    EXPECT_FALSE(third->has());
    first = nullptr;
    EXPECT_TRUE(third->gets());
}

TEST_F(DecodeSlotsTest, NothingElseIsDecodedBesideALargeImage) {
    auto first = slots_->takeLarge();
    const auto second = small();
    EXPECT_FALSE(second->has());
    first.decoding = nullptr;
    EXPECT_TRUE(second->gets());
}

TEST_F(DecodeSlotsTest, ALargeImageWaitsForSmallOnes) {
    auto first = slots_->takeSmall();
    const auto second = large();
    EXPECT_FALSE(second->has());
    first = nullptr;
    EXPECT_TRUE(second->gets());
}

TEST_F(DecodeSlotsTest, ALargeBitmapLeavesRoomForOneSmallImage) {
    auto large = slots_->takeLarge();
    large.decoding = nullptr;
    auto first = slots_->takeSmall();
    const auto second = small();
    EXPECT_FALSE(second->has());
    large.bitmap = nullptr;
    EXPECT_TRUE(second->gets());
}

TEST_F(DecodeSlotsTest, ALargeImageWaitsUntilThePreviousBitmapIsReleased) {
    auto first = slots_->takeLarge();
    first.decoding = nullptr;
    const auto second = large();
    EXPECT_FALSE(second->has());
    first.bitmap = nullptr;
    EXPECT_TRUE(second->gets());
}

TEST_F(DecodeSlotsTest, AKeptBitmapDelaysTheNextLargeImageOnlyForAWhile) {
    slots_ = std::make_shared<DecodeSlots>(1ms);
    auto first = slots_->takeLarge();
    first.decoding = nullptr;
    EXPECT_TRUE(large()->gets());
}

TEST_F(DecodeSlotsTest, AHoldMayOutliveTheSlots) {
    auto hold = slots_->takeLarge();
    slots_ = nullptr;
    hold = {};
}

TEST_F(DecodeSlotsTest, ManyThreadsAllGetASlot) {
    std::atomic<int> decoding = 0;
    std::atomic<int> served = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                const int weight = (t + i) % 5 == 0 ? 2 : 1;
                DecodeSlots::LargeHold largeHold;
                DecodeSlots::Hold smallHold;
                if (weight == 2) {
                    largeHold = slots_->takeLarge();
                } else {
                    smallHold = slots_->takeSmall();
                }
                EXPECT_LE(decoding += weight, 2);
                decoding -= weight;
                ++served;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(served, 1200);
}

}  // namespace
}  // namespace glintmark::platform
