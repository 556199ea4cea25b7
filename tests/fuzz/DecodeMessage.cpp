#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "decoder/DescriptorMessage.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using namespace decoder;

namespace {

constexpr std::size_t maximumDescriptors = 8;

/// The lowest free descriptor number.
int nextDescriptor() { return FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)).get(); }

void sendRaw(int socket, std::span<const std::uint8_t> bytes, std::size_t descriptors) {
    std::vector<std::uint8_t> content(bytes.begin(), bytes.end());
    iovec part{content.data(), content.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(maximumDescriptors * sizeof(int))> control{};
    const std::vector<int> numbers(descriptors, socket);
    if (descriptors > 0) {
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(descriptors * sizeof(int));
        cmsghdr* const rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(descriptors * sizeof(int));
        std::memcpy(CMSG_DATA(rights), numbers.data(), descriptors * sizeof(int));
    }
    fuzz::require(sendmsg(socket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()));
}

}  // namespace

/// The first byte is the number of descriptors, the others are a message from a child that an
/// attacker controls. Rule: the message is received whole or not at all, no descriptor leaks, and
/// the next message still arrives.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const SocketPair channel;
    if (size < 2) {
        return 0;
    }
    const std::size_t count = data[0] % (maximumDescriptors + 1);
    const std::span message(data + 1, size - 1);
    const int next = nextDescriptor();
    sendRaw(channel.theirs.get(), message, count);
    std::array<std::byte, sizeof(DecodeAnswer)> received{};
    {
        NoticeDescriptors descriptors;
        const auto length = receiveMessage(channel.ours.get(), received, descriptors);
        const bool fits = message.size() <= received.size() && count <= noticeDescriptors;
        fuzz::require(length == (fits ? message.size() : received.size() + 1));
        fuzz::require(!fits || std::memcmp(received.data(), message.data(), message.size()) == 0);
    }
    fuzz::require(nextDescriptor() == next);
    NoticeDescriptors none;
    fuzz::require(sendMessage(channel.theirs.get(), RoomReply{1}));
    fuzz::require(receiveMessage(channel.ours.get(), received, none) == sizeof(RoomReply));
    return 0;
}
