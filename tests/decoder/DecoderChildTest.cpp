#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "decoder/DecoderChild.h"
#include "tests/decoder/ImageFiles.h"

namespace glintmark::decoder {
namespace {

using Status = DecodeAnswer::Status;

/// The part of a child that runs inside the sandbox, called in this process.
class DecoderChildTest : public testing::Test {
protected:
    DecoderChildTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
        reading_ = FileDescriptor(ends[0]);
        writing_ = FileDescriptor(ends[1]);
        pixels_ = FileDescriptor(memfd_create("pixels", MFD_CLOEXEC));
    }

    std::optional<DecodeAnswer> answerTo(const Bytes& file, DecodeSlot slot,
                                         DecodeFunction decode = decodeImage) {
        decodeAndAnswer(file, slot, pixels_.get(), writing_.get(), decode);
        std::array<std::uint8_t, 100> bytes{};
        const ssize_t length = read(reading_.get(), bytes.data(), bytes.size());
        if (length < 0) {
            return std::nullopt;
        }
        return parseAnswer(std::span(bytes).first(static_cast<std::size_t>(length)), slot);
    }

    std::size_t pixelFileSize() const {
        struct stat status {};
        fstat(pixels_.get(), &status);
        return static_cast<std::size_t>(status.st_size);
    }

    FileDescriptor reading_;
    FileDescriptor writing_;
    FileDescriptor pixels_;
};

TEST_F(DecoderChildTest, ThePixelFileHasExactlyTheSizeOfThePixels) {
    const auto answer = answerTo(imageFile("rgba8.png"), DecodeSlot::small);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::decoded);
    EXPECT_EQ(answer->width, 6);
    EXPECT_EQ(answer->height, 5);
    EXPECT_EQ(answer->hasAlpha, 1U);
    EXPECT_EQ(pixelFileSize(), 120U);
    std::array<std::uint8_t, 4> last{};
    EXPECT_EQ(pread(pixels_.get(), last.data(), last.size(), 116), 4);
    EXPECT_EQ(last, (std::array<std::uint8_t, 4>{200, 200, 200, 225}));
}

TEST_F(DecoderChildTest, ABrokenImageIsAnsweredAsUndecodable) {
    const auto answer = answerTo(imageFile("truncated.png"), DecodeSlot::small);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::undecodable);
}

TEST_F(DecoderChildTest, ALargeImageNeedsTheLargeSlot) {
    const Bytes file = imageFile("large-1025x1024.png");
    const auto small = answerTo(file, DecodeSlot::small);
    ASSERT_TRUE(small);
    EXPECT_EQ(small->status, Status::needsLargeSlot);
    EXPECT_EQ(pixelFileSize(), 0U);
    const auto large = answerTo(file, DecodeSlot::large);
    ASSERT_TRUE(large);
    EXPECT_EQ(large->status, Status::decoded);
    EXPECT_EQ(pixelFileSize(), large->pixelBytes());
}

TEST_F(DecoderChildTest, ALargeImageIsNotReplacedByASmallerOneOfTheFile) {
    const auto answer = answerTo(
        imageFile("rgba8.png"), DecodeSlot::small,
        [](std::span<const std::uint8_t> file, PixelStore& pixels) -> std::optional<DecodedImage> {
            if (pixels.allocate(2000, 2000)) {
                return std::nullopt;
            }
            return decodeImage(file, pixels);
        });
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::needsLargeSlot);
}

TEST_F(DecoderChildTest, ASecondCanvasIsTransparent) {
    const auto answer = answerTo(
        {1}, DecodeSlot::small,
        [](std::span<const std::uint8_t>, PixelStore& pixels) -> std::optional<DecodedImage> {
            *pixels.allocate(1, 1)->row(0) = 7;
            if (*pixels.allocate(2, 1)->row(0) != 0) {
                return std::nullopt;
            }
            return DecodedImage{2, 1, true};
        });
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::decoded);
    EXPECT_EQ(pixelFileSize(), 8U);
}

TEST_F(DecoderChildTest, WithoutAPixelFileNothingDecodes) {
    pixels_ = FileDescriptor();
    const auto answer = answerTo(imageFile("rgba8.png"), DecodeSlot::small);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::undecodable);
}

}  // namespace
}  // namespace glintmark::decoder
