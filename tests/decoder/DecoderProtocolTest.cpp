#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "decoder/DecoderProtocol.h"

namespace glintmark::decoder {
namespace {

using Status = DecodeAnswer::Status;

std::vector<std::uint8_t> bytes(const DecodeAnswer& answer) {
    std::vector<std::uint8_t> out(sizeof answer);
    std::memcpy(out.data(), &answer, sizeof answer);
    return out;
}

DecodeAnswer decoded(int width, int height, unsigned hasAlpha = 0) {
    return {Status::decoded, width, height, hasAlpha, 0, {}};
}

bool isAccepted(const DecodeAnswer& answer) { return parseAnswer(bytes(answer)).has_value(); }

TEST(DecoderProtocolTest, AnAnswerIsReadAsItWasWritten) {
    const auto answer = parseAnswer(bytes({Status::decoded, 3, 2, 1, 0, {5, 6}}));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::decoded);
    EXPECT_EQ(answer->width, 3);
    EXPECT_EQ(answer->height, 2);
    EXPECT_EQ(answer->hasAlpha, 1U);
    EXPECT_EQ(answer->edges, (EdgeAlphas{5, 6}));
    EXPECT_EQ(answer->bitmapBytes(), 24U);
}

TEST(DecoderProtocolTest, AnAnswerOfAnotherLengthIsRefused) {
    auto text = bytes(decoded(1, 1));
    text.push_back(0);
    EXPECT_FALSE(parseAnswer(text));
    text.resize(text.size() - 2);
    EXPECT_FALSE(parseAnswer(text));
    EXPECT_FALSE(parseAnswer({}));
}

TEST(DecoderProtocolTest, ValuesOutOfRangeAreRefused) {
    EXPECT_TRUE(isAccepted(decoded(maximumSide, 1)));
    EXPECT_FALSE(isAccepted(decoded(maximumSide + 1, 1)));
    EXPECT_FALSE(isAccepted(decoded(1, maximumSide + 1)));
    EXPECT_TRUE(isAccepted(decoded(10000, 5000)));
    EXPECT_FALSE(isAccepted(decoded(10000, 5001)));
    EXPECT_FALSE(isAccepted(decoded(0, 1)));
    EXPECT_FALSE(isAccepted(decoded(1, -1)));
    EXPECT_FALSE(isAccepted(decoded(1, 1, 2)));
    EXPECT_FALSE(isAccepted({static_cast<Status>(0), 1, 1, 0, 0, {}}));
    EXPECT_FALSE(isAccepted({static_cast<Status>(6), 1, 1, 0, 0, {}}));
    EXPECT_TRUE(isAccepted({Status::undecodable, -5, 0, 9, 0, {}}));
}

TEST(DecoderProtocolTest, ABitmapOfMoreThanOneMebibyteArrivesScaled) {
    EXPECT_FALSE(decoded(512, 512).isScaled());
    EXPECT_TRUE(decoded(513, 512).isScaled());
}

}  // namespace
}  // namespace glintmark::decoder
