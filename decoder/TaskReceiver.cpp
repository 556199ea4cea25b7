#include "decoder/TaskReceiver.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace glintmark::decoder {

namespace {

using Descriptors = std::array<FileDescriptor, requestDescriptors>;

/// Moves the descriptors that arrived with `message` into `owned` and returns their number. Because
/// of the message's alignment one more may have arrived than `owned` holds. That one is closed.
std::size_t takeDescriptors(msghdr& message, Descriptors& owned) {
    std::size_t taken = 0;
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i, ++taken) {
            int number = -1;
            std::memcpy(&number, CMSG_DATA(part) + i * sizeof number, sizeof number);
            FileDescriptor descriptor(number);
            if (taken < owned.size()) {
                owned[taken] = std::move(descriptor);
            }
        }
    }
    return taken;
}

bool isSlot(DecodeSlot slot) { return slot == DecodeSlot::small || slot == DecodeSlot::large; }

}  // namespace

Received receiveTask(int socket, DecodeTask& task, int flags) {
    DecodeRequest request;
    iovec content{&request, sizeof request};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(requestDescriptors * sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t length = recvmsg(socket, &message, flags | MSG_CMSG_CLOEXEC);
    if (length < 0) {
        return errno == EAGAIN || errno == EINTR ? Received::nothing : Received::end;
    }

    Descriptors owned;
    const std::size_t descriptors = takeDescriptors(message, owned);
    if (length == 0) {
        return Received::end;
    }
    const bool whole = length == sizeof request && descriptors == requestDescriptors &&
                       (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0;
    if (!whole || !isSlot(request.slot)) {
        return Received::nothing;
    }
    task = {request.slot, std::move(owned[0]), std::move(owned[1]), std::move(owned[2])};
    return Received::task;
}

}  // namespace glintmark::decoder
