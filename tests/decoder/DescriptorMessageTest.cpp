#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "decoder/DescriptorMessage.h"

namespace glintmark::decoder {
namespace {

class DescriptorMessageTest : public testing::Test {
protected:
    /// Sends `bytes` with `descriptors` descriptors.
    void send(std::string bytes, std::size_t descriptors) {
        iovec part{bytes.data(), bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const std::vector<int> numbers(descriptors, sockets_.ours.get());
        const std::size_t size = descriptors * sizeof(int);
        std::vector<char> control(CMSG_SPACE(size));
        if (descriptors > 0) {
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            cmsghdr* const rights = CMSG_FIRSTHDR(&message);
            rights->cmsg_level = SOL_SOCKET;
            rights->cmsg_type = SCM_RIGHTS;
            rights->cmsg_len = CMSG_LEN(size);
            std::memcpy(CMSG_DATA(rights), numbers.data(), size);
        }
        ASSERT_EQ(sendmsg(sockets_.ours.get(), &message, MSG_NOSIGNAL), std::ssize(bytes));
    }

    std::optional<std::size_t> receive() {
        return receiveMessage(sockets_.theirs.get(),
                              std::as_writable_bytes(std::span(&received_, 1)), descriptors_);
    }

    /// The lowest free descriptor number.
    static int nextDescriptor() {
        return FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)).get();
    }

    SocketPair sockets_;
    std::uint32_t received_ = 0;
    NoticeDescriptors descriptors_;
};

TEST_F(DescriptorMessageTest, AMessageArrivesWithItsDescriptors) {
    const int socket = sockets_.ours.get();
    const std::array numbers{socket, socket};
    ASSERT_TRUE(sendMessage(socket, std::uint32_t{7}, numbers));
    ASSERT_EQ(receive(), sizeof received_);
    EXPECT_EQ(received_, 7U);
    for (const FileDescriptor& descriptor : descriptors_) {
        ASSERT_TRUE(descriptor);
        EXPECT_NE(fcntl(descriptor.get(), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(receive(), std::nullopt);
}

TEST_F(DescriptorMessageTest, AMessageMayHaveNoDescriptor) {
    ASSERT_TRUE(sendMessage(sockets_.ours.get(), std::uint32_t{7}));
    EXPECT_EQ(receive(), sizeof received_);
    EXPECT_FALSE(descriptors_[0]);
}

TEST_F(DescriptorMessageTest, AMessageOfAnotherLengthIsSeen) {
    send("abc", 0);
    send("abcde", 0);
    EXPECT_EQ(receive(), 3U);
    EXPECT_EQ(receive(), sizeof received_ + 1);
}

TEST_F(DescriptorMessageTest, SurplusDescriptorsAreClosed) {
    const int next = nextDescriptor();
    for (const std::size_t count : {3U, 4U, 9U}) {
        send("abcd", count);
        EXPECT_EQ(receive(), sizeof received_ + 1) << count;
        EXPECT_EQ(nextDescriptor(), next) << count;
    }
}

TEST_F(DescriptorMessageTest, TheOtherEndMayBeClosed) {
    sockets_.ours = {};
    EXPECT_EQ(receive(), 0U);
    EXPECT_FALSE(sendMessage(sockets_.theirs.get(), std::uint32_t{7}));
}

}  // namespace
}  // namespace glintmark::decoder
