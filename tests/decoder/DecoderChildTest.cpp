#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <thread>

#include "base/graphics/ImageScaling.h"
#include "decoder/DecoderChild.h"
#include "decoder/DescriptorMessage.h"
#include "tests/decoder/ImageFiles.h"

namespace glintmark::decoder {
namespace {

using Status = DecodeAnswer::Status;

std::optional<DecodedImage> decodeHuge(std::span<const std::uint8_t>, PixelStore& pixels) {
    const auto canvas = pixels.allocate(2000, 2000);
    return canvas ? std::optional(DecodedImage{2000, 2000, true}) : std::nullopt;
}

/// The part of a child that runs inside the sandbox, called in this process.
class DecoderChildTest : public testing::Test {
protected:
    DecoderChildTest() : exchange_(memfd_create("image", MFD_CLOEXEC)) {
        EXPECT_EQ(ftruncate(exchange_.get(), exchangeBytes), 0);
        void* const memory =
            mmap(nullptr, exchangeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, exchange_.get(), 0);
        EXPECT_NE(memory, MAP_FAILED);
        memory_ = {static_cast<std::uint8_t*>(memory), exchangeBytes};
        // As after another image.
        std::ranges::fill(memory_, std::uint8_t{9});
    }
    ~DecoderChildTest() override { munmap(memory_.data(), memory_.size()); }

    /// All messages of the child. `room` is the reply to its question.
    std::vector<DecodeAnswer> answersTo(const Bytes& file, bool room = false) {
        EXPECT_EQ(pwrite(exchange_.get(), file.data(), file.size(), encodedOffset),
                  std::ssize(file));
        sendMessage(sockets_.ours.get(), RoomReply{room ? 1U : 0U});
        EXPECT_TRUE(decodeAndAnswer(file.size(), sockets_.theirs.get(), exchange_.get(), memory_,
                                    settings_));
        std::vector<DecodeAnswer> answers;
        DecodeAnswer answer;
        NoticeDescriptors none;
        while (receiveMessage(sockets_.ours.get(), std::as_writable_bytes(std::span(&answer, 1)),
                              none) == sizeof answer) {
            answers.push_back(answer);
        }
        return answers;
    }

    Bytes answerPixels(std::size_t size) const {
        return {memory_.begin(), memory_.begin() + static_cast<std::ptrdiff_t>(size)};
    }

    SocketPair sockets_;
    FileDescriptor exchange_;
    std::span<std::uint8_t> memory_;
    ChildSettings settings_;
};

TEST_F(DecoderChildTest, ASmallImageIsAnsweredWithAllItsPixels) {
    const Bytes file = imageFile("rgba8.png");
    const auto answers = answersTo(file);
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].status, Status::decoded);
    EXPECT_EQ(answers[0].width, 6);
    EXPECT_EQ(answers[0].height, 5);
    EXPECT_EQ(answers[0].hasAlpha, 1U);
    const auto expected = decoded(file);
    EXPECT_EQ(answers[0].edges, edgeAlphas(*expected));
    EXPECT_TRUE(std::ranges::equal(answerPixels(120), expected->pixels()));
}

TEST_F(DecoderChildTest, ALargeImageIsAnsweredWithItsScaledPicture) {
    const Bytes file = imageFile("large-1025x1024.png");
    const auto answers = answersTo(file, true);
    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[0].status, Status::asksForRoom);
    EXPECT_EQ(answers[1].status, Status::decoded);
    EXPECT_EQ(answers[1].width, 1025);
    const auto whole = decoded(file);
    EXPECT_EQ(answers[1].edges, edgeAlphas(*whole));
    EXPECT_TRUE(
        std::ranges::equal(answerPixels(maximumAnswerBytes), scaled(*whole, 512, 512).pixels()));
}

TEST_F(DecoderChildTest, WithoutRoomALargeImageIsNotDecoded) {
    const auto answers = answersTo(imageFile("large-1025x1024.png"));
    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[0].status, Status::asksForRoom);
    EXPECT_EQ(answers[1].status, Status::lacksRoom);
}

TEST_F(DecoderChildTest, ALargeImageIsNotReplacedByASmallerOneOfTheFile) {
    settings_.decode = [](std::span<const std::uint8_t> file,
                          PixelStore& pixels) -> std::optional<DecodedImage> {
        if (pixels.allocate(2000, 2000)) {
            return std::nullopt;
        }
        return decodeImage(file, pixels);
    };
    const auto answers = answersTo(imageFile("rgba8.png"));
    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[1].status, Status::lacksRoom);
}

TEST_F(DecoderChildTest, RoomIsAskedForOnce) {
    settings_.decode = [](std::span<const std::uint8_t> file, PixelStore& pixels) {
        decodeHuge(file, pixels);
        return decodeHuge(file, pixels);
    };
    EXPECT_EQ(answersTo({1}, true).size(), 2U);
}

TEST_F(DecoderChildTest, ALongFileNeedsRoomWhateverItsPixels) {
    Bytes file = imageFile("rgba8.png");
    file.resize(maximumSmallFileBytes + 1);
    EXPECT_EQ(answersTo(file).back().status, Status::lacksRoom);
    EXPECT_EQ(answersTo(file, true).back().status, Status::decoded);
}

TEST_F(DecoderChildTest, ABrokenImageIsAnsweredAsUndecodable) {
    const auto answers = answersTo(imageFile("truncated.png"));
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].status, Status::undecodable);
}

TEST_F(DecoderChildTest, ABrokenFormatIsRefused) {
    settings_.brokenFormats = {decodePNG};
    EXPECT_EQ(answersTo(imageFile("rgba8.png")).back().status, Status::undecodable);
    EXPECT_EQ(answersTo(imageFile("animated.gif")).back().status, Status::decoded);
}

TEST_F(DecoderChildTest, ASecondCanvasIsTransparent) {
    settings_.decode = [](std::span<const std::uint8_t>,
                          PixelStore& pixels) -> std::optional<DecodedImage> {
        *pixels.allocate(1, 1)->row(0) = 7;
        if (*pixels.allocate(2, 1)->row(0) != 0) {
            return std::nullopt;
        }
        return DecodedImage{2, 1, true};
    };
    EXPECT_EQ(answersTo({1}).back().status, Status::decoded);
    EXPECT_EQ(answerPixels(8), Bytes(8, 0));
}

}  // namespace
}  // namespace glintmark::decoder
