#include <gtest/gtest.h>

#include <cstring>

#include "decoder/DecoderProtocol.h"

namespace glintmark::decoder {
namespace {

using Status = DecodeAnswer::Status;

std::vector<std::uint8_t> bytes(const DecodeAnswer& answer) {
    std::vector<std::uint8_t> out(sizeof answer);
    std::memcpy(out.data(), &answer, sizeof answer);
    return out;
}

bool isAccepted(const DecodeAnswer& answer, DecodeSlot slot) {
    return parseAnswer(bytes(answer), slot).has_value();
}

TEST(DecoderProtocolTest, AnAnswerIsReadAsItWasWritten) {
    const auto answer = parseAnswer(bytes({Status::decoded, 3, 2, 1}), DecodeSlot::small);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::decoded);
    EXPECT_EQ(answer->width, 3);
    EXPECT_EQ(answer->height, 2);
    EXPECT_EQ(answer->hasAlpha, 1U);
    EXPECT_EQ(answer->pixelBytes(), 24U);
}

TEST(DecoderProtocolTest, AnAnswerOfAnotherLengthIsRefused) {
    auto text = bytes({Status::decoded, 1, 1, 0});
    text.push_back(0);
    EXPECT_FALSE(parseAnswer(text, DecodeSlot::small));
    text.resize(text.size() - 2);
    EXPECT_FALSE(parseAnswer(text, DecodeSlot::small));
    EXPECT_FALSE(parseAnswer({}, DecodeSlot::small));
}

TEST(DecoderProtocolTest, ValuesOutOfRangeAreRefused) {
    EXPECT_TRUE(isAccepted({Status::decoded, 16384, 1, 0}, DecodeSlot::small));
    EXPECT_FALSE(isAccepted({Status::decoded, 65536, 1, 0}, DecodeSlot::small));
    EXPECT_FALSE(isAccepted({Status::decoded, 1, 65536, 0}, DecodeSlot::small));
    EXPECT_FALSE(isAccepted({Status::decoded, 0, 1, 0}, DecodeSlot::small));
    EXPECT_FALSE(isAccepted({Status::decoded, 1, -1, 0}, DecodeSlot::small));
    EXPECT_FALSE(isAccepted({Status::decoded, 1, 1, 2}, DecodeSlot::small));
    EXPECT_FALSE(isAccepted({static_cast<Status>(0), 1, 1, 0}, DecodeSlot::small));
    EXPECT_FALSE(isAccepted({static_cast<Status>(4), 1, 1, 0}, DecodeSlot::small));
    EXPECT_TRUE(isAccepted({Status::undecodable, -5, 0, 9}, DecodeSlot::small));
}

TEST(DecoderProtocolTest, TheSlotLimitsThePixels) {
    EXPECT_TRUE(isAccepted({Status::decoded, 1024, 1024, 0}, DecodeSlot::small));
    EXPECT_FALSE(isAccepted({Status::decoded, 1024, 1025, 0}, DecodeSlot::small));
    EXPECT_TRUE(isAccepted({Status::decoded, 10000, 5000, 0}, DecodeSlot::large));
    EXPECT_FALSE(isAccepted({Status::decoded, 10000, 5001, 0}, DecodeSlot::large));
}

TEST(DecoderProtocolTest, OnlyTheSmallSlotCanNeedTheLargeOne) {
    EXPECT_TRUE(isAccepted({Status::needsLargeSlot, 0, 0, 0}, DecodeSlot::small));
    EXPECT_FALSE(isAccepted({Status::needsLargeSlot, 0, 0, 0}, DecodeSlot::large));
}

}  // namespace
}  // namespace glintmark::decoder
