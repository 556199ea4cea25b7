#pragma once

#include <sys/socket.h>

#include <array>
#include <cstring>

#include "decoder/DecoderProtocol.h"

namespace glintmark::decoder {

using RequestDescriptors = std::array<int, requestDescriptors>;

/// Sends a request with its descriptors over `socket`. Blocks while the socket's buffer is full.
/// False if the other end is closed.
inline bool sendRequest(int socket, DecodeRequest request, const RequestDescriptors& descriptors) {
    iovec content{&request, sizeof request};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptors)> control{};
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof descriptors);
    std::memcpy(CMSG_DATA(rights), descriptors.data(), sizeof descriptors);
    return sendmsg(socket, &message, MSG_NOSIGNAL) == ssize_t{sizeof request};
}

}  // namespace glintmark::decoder
