#pragma once

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <type_traits>
#include <utility>

#include "base/system/FileDescriptor.h"
#include "decoder/DecoderProtocol.h"

namespace glintmark::decoder {

using NoticeDescriptors = std::array<FileDescriptor, noticeDescriptors>;

/// Moves the descriptors that arrived with `message` into `owned` and returns their number. Those
/// that `owned` has no room for are closed.
inline std::size_t takeDescriptors(msghdr& message, NoticeDescriptors& owned) {
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

/// Sends one message over `socket`, with copies of `descriptors`. Blocks while the socket's buffer
/// is full. False if the other end is closed.
inline bool sendMessage(int socket, std::span<const std::byte> message,
                        std::span<const int> descriptors = {}) {
    iovec content{const_cast<std::byte*>(message.data()), message.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(noticeDescriptors * sizeof(int))> control{};
    msghdr header{};
    header.msg_iov = &content;
    header.msg_iovlen = 1;
    if (!descriptors.empty()) {
        header.msg_control = control.data();
        header.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
        cmsghdr* const rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(descriptors.size_bytes());
        std::memcpy(CMSG_DATA(rights), descriptors.data(), descriptors.size_bytes());
    }
    ssize_t sent = 0;
    do {
        sent = sendmsg(socket, &header, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(message.size());
}

/// Receives one message without blocking and returns its length: 0 if the other end is closed, more
/// than `message` holds if the message is too long or has too many descriptors. Absent if there is
/// no message. Descriptors that are not returned are closed.
inline std::optional<std::size_t> receiveMessage(int socket, std::span<std::byte> message,
                                                 NoticeDescriptors& descriptors) {
    iovec content{message.data(), message.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(noticeDescriptors * sizeof(int))> control{};
    msghdr header{};
    header.msg_iov = &content;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    const ssize_t length = recvmsg(socket, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (length < 0) {
        return errno == EAGAIN || errno == EINTR ? std::nullopt : std::optional<std::size_t>(0);
    }
    NoticeDescriptors owned;
    const std::size_t count = takeDescriptors(header, owned);
    if ((header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 || count > owned.size()) {
        return message.size() + 1;
    }
    descriptors = std::move(owned);
    return static_cast<std::size_t>(length);
}

template <typename Message>
bool sendMessage(int socket, const Message& message, std::span<const int> descriptors = {}) {
    static_assert(std::is_trivially_copyable_v<Message>);
    return sendMessage(socket, std::as_bytes(std::span(&message, 1)), descriptors);
}

/// A pair of connected sockets. Empty if the system has no more descriptors.
struct SocketPair {
    SocketPair() {
        std::array<int, 2> ends{-1, -1};
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0) {
            ours = FileDescriptor(ends[0]);
            theirs = FileDescriptor(ends[1]);
        }
    }

    FileDescriptor ours;
    FileDescriptor theirs;
};

}  // namespace glintmark::decoder
