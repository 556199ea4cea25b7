#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "platform/linux/workspace/PreparedPictures.h"

namespace glintmark::platform {
namespace {

constexpr std::size_t edge = 512;

class PreparedPicturesTest : public testing::Test {
protected:
    /// A bitmap over `pixels_`, which the test changes to see when they are encoded.
    BitmapImageRep bitmap() {
        return {edge, edge, true, std::shared_ptr<const void>(&pixels_, [](const void*) {}),
                pixels_};
    }
    std::string encoded() { return encodedPictures(bitmap()).full; }

    std::vector<std::uint8_t> pixels_ = std::vector<std::uint8_t>(edge * edge * 4, 255);
    PreparedPictures prepared_;
};

TEST_F(PreparedPicturesTest, GivesWhatWasEncodedAhead) {
    const std::string white = encoded();
    prepared_.add(bitmap());
    pixels_[0] = 0;
    EXPECT_EQ(prepared_.take(bitmap()).full, white);
}

TEST_F(PreparedPicturesTest, GivesItOnce) {
    prepared_.add(bitmap());
    pixels_[0] = 0;
    prepared_.take(bitmap());
    EXPECT_EQ(prepared_.take(bitmap()).full, encoded());
}

TEST_F(PreparedPicturesTest, EncodesWhatWasNotAdded) {
    const std::vector<std::uint8_t> black(edge * edge * 4, 0);
    prepared_.add(bitmap());
    EXPECT_EQ(prepared_.take({edge, edge, true, black}).full,
              encodedPictures({edge, edge, true, black}).full);
}

TEST_F(PreparedPicturesTest, HoldsThePixelsUntilTheyAreTaken) {
    const auto owner = std::make_shared<int>(0);
    const BitmapImageRep held(edge, edge, true, owner, pixels_);
    const auto before = owner.use_count();
    prepared_.add(held);
    EXPECT_EQ(owner.use_count(), before + 1);
    prepared_.take(held);
    EXPECT_EQ(owner.use_count(), before);
}

}  // namespace
}  // namespace glintmark::platform
