#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "decoder/RequestMessage.h"
#include "decoder/TaskReceiver.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using namespace decoder;

namespace {

constexpr std::size_t maximumDescriptors = 8;

/// Both ends of a decoder's socket.
struct Channel {
    Channel() {
        std::array<int, 2> ends{};
        fuzz::require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0);
        program = FileDescriptor(ends[0]);
        decoder = FileDescriptor(ends[1]);
    }
    FileDescriptor program;
    FileDescriptor decoder;
};

/// The lowest free descriptor number.
int nextDescriptor() { return FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)).get(); }

void sendMessage(int socket, std::span<const std::uint8_t> bytes, std::size_t descriptors) {
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

void requireSentRequestArrives(const Channel& channel, DecodeSlot slot) {
    const int socket = channel.program.get();
    fuzz::require(sendRequest(socket, {slot}, {socket, socket, socket}));
    DecodeTask task;
    fuzz::require(receiveTask(channel.decoder.get(), task) == Received::task && task.slot == slot);
}

}  // namespace

/// The first byte is the number of descriptors, the others are the message. Rule: only a complete
/// request becomes a task, no descriptor leaks, and the next request still arrives.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Channel channel;
    if (size == 0) {
        return 0;
    }
    const std::size_t descriptors = data[0] % (maximumDescriptors + 1);
    const std::span message(data + 1, size - 1);
    const int next = nextDescriptor();
    sendMessage(channel.program.get(), message, descriptors);
    {
        DecodeTask task;
        if (receiveTask(channel.decoder.get(), task, MSG_DONTWAIT) == Received::task) {
            fuzz::require(message.size() == sizeof(DecodeRequest));
            fuzz::require(descriptors == requestDescriptors);
            fuzz::require(task.slot == DecodeSlot::small || task.slot == DecodeSlot::large);
            fuzz::require(task.encoded && task.pixels && task.answer);
        }
    }
    fuzz::require(nextDescriptor() == next);
    requireSentRequestArrives(channel, DecodeSlot::small);
    requireSentRequestArrives(channel, DecodeSlot::large);
    return 0;
}
