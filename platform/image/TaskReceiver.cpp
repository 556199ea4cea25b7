#include "platform/image/TaskReceiver.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace glintmark::platform::image {

namespace {

/// Takes all descriptors that arrived with `message` into `owned`.
void takeDescriptors(msghdr& message, std::array<FileDescriptor, requestDescriptors>& owned) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
        const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < std::min(count, owned.size()); ++i) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(part) + i * sizeof fd, sizeof fd);
            owned[i] = FileDescriptor(fd);
        }
    }
}

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
    if (length < 0) return errno == EAGAIN || errno == EINTR ? Received::nothing : Received::end;
    if (length == 0) return Received::end;

    std::array<FileDescriptor, requestDescriptors> owned;
    takeDescriptors(message, owned);
    const bool complete = length == sizeof request && std::ranges::all_of(owned, [](auto& fd) {
                              return static_cast<bool>(fd);
                          });
    if (!complete) return Received::nothing;
    task = {request.slot, std::move(owned[0]), std::move(owned[1]), std::move(owned[2])};
    return Received::task;
}

}  // namespace glintmark::platform::image
