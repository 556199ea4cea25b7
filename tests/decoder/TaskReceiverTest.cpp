#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "decoder/RequestMessage.h"
#include "decoder/TaskReceiver.h"

namespace glintmark::decoder {
namespace {

/// The decoder's socket and the program's end of it.
class TaskReceiverTest : public testing::Test {
protected:
    TaskReceiverTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
        program_ = FileDescriptor(ends[0]);
        decoder_ = FileDescriptor(ends[1]);
    }

    /// Sends `bytes` with `descriptors` descriptors.
    void send(std::string bytes, std::size_t descriptors) {
        iovec part{bytes.data(), bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const std::vector<int> numbers(descriptors, program_.get());
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
        ASSERT_EQ(sendmsg(program_.get(), &message, MSG_NOSIGNAL), std::ssize(bytes));
    }

    Received receive() { return receiveTask(decoder_.get(), task_, MSG_DONTWAIT); }

    /// The lowest free descriptor number.
    static int nextDescriptor() {
        return FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)).get();
    }

    static std::string requestFor(std::uint32_t slot) {
        return {reinterpret_cast<const char*>(&slot), sizeof slot};
    }

    FileDescriptor program_;
    FileDescriptor decoder_;
    DecodeTask task_;
};

TEST_F(TaskReceiverTest, ARequestArrivesWithItsDescriptors) {
    const int socket = program_.get();
    ASSERT_TRUE(sendRequest(socket, {DecodeSlot::large}, {socket, socket, socket}));
    ASSERT_EQ(receive(), Received::task);
    EXPECT_EQ(task_.slot, DecodeSlot::large);
    for (const auto* descriptor : {&task_.encoded, &task_.pixels, &task_.answer}) {
        EXPECT_TRUE(*descriptor);
        EXPECT_NE(fcntl(descriptor->get(), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(receive(), Received::nothing);
}

TEST_F(TaskReceiverTest, OnlyACompleteRequestIsATask) {
    const std::string request = requestFor(1);
    send(request.substr(1), requestDescriptors);
    send(request + '\0', requestDescriptors);
    send(request, requestDescriptors - 1);
    send(request, 0);
    send(requestFor(0), requestDescriptors);
    send(requestFor(3), requestDescriptors);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(receive(), Received::nothing) << i;
    }
    send(request, requestDescriptors);
    EXPECT_EQ(receive(), Received::task);
}

TEST_F(TaskReceiverTest, ARefusedRequestLeavesNoDescriptorOpen) {
    const int next = nextDescriptor();
    for (const std::size_t descriptors : {1U, 4U, 5U, 9U}) {
        send(requestFor(1), descriptors);
        EXPECT_EQ(receive(), Received::nothing) << descriptors;
        EXPECT_EQ(nextDescriptor(), next) << descriptors;
    }
    send("", requestDescriptors);
    EXPECT_EQ(receive(), Received::end);
    EXPECT_EQ(nextDescriptor(), next);
}

TEST_F(TaskReceiverTest, TheOtherEndMayBeClosed) {
    program_ = FileDescriptor();
    EXPECT_EQ(receive(), Received::end);
    EXPECT_FALSE(sendRequest(decoder_.get(), {}, {0, 1, 2}));
}

}  // namespace
}  // namespace glintmark::decoder
