#include "platform/image/DecoderServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/image/WarmUp.h"

namespace glintmark::platform::image {

namespace {

using Clock = std::chrono::steady_clock;

// As many as the program asks for at a time; further requests wait in the socket.
constexpr std::size_t maximumChildren = 2;

std::size_t mappedBytes() {
    const FileDescriptor statistics(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
    std::array<char, 64> text{};
    if (!statistics || read(statistics.get(), text.data(), text.size() - 1) <= 0) return 0;
    unsigned long pages = 0;  // proc(5): the first number
    for (std::size_t i = 0; text[i] >= '0' && text[i] <= '9'; ++i) {
        pages = pages * 10 + static_cast<unsigned long>(text[i] - '0');
    }
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

int millisecondsUntil(Clock::time_point when) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

// pidfd_open(2), which the C library's header declares without C linkage.
int processDescriptor(pid_t pid) { return static_cast<int>(syscall(SYS_pidfd_open, pid, 0)); }

enum class Received : std::uint8_t { task, nothing, end };

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

Received receive(int socket, DecodeTask& task) {
    DecodeRequest request;
    iovec content{&request, sizeof request};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(requestDescriptors * sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t length = recvmsg(socket, &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
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

class Server {
public:
    Server(const DecoderServerOptions& options, std::optional<Sandbox> sandbox)
        : options_(options), sandbox_(std::move(sandbox)), mappedBefore_(mappedBytes()) {}

    void serve() {
        idleSince_ = Clock::now();
        while (wait()) {
        }
    }

private:
    struct Child {
        pid_t pid;
        FileDescriptor process;
        Clock::time_point deadline;
    };

    /// Waits for one thing to happen and deals with it. False when there is nothing more to do.
    bool wait() {
        std::vector<pollfd> watched;
        for (const Child& child : children_) watched.push_back({child.process.get(), POLLIN, 0});
        const bool listens = children_.size() < maximumChildren;
        if (listens) watched.push_back({decoderSocket, POLLIN, 0});
        poll(watched.data(), watched.size(), millisecondsUntil(nextDeadline()));

        const bool heard = listens && watched.back().revents != 0;
        endAndReap();
        if (heard) return takeRequest();
        if (!isIdleForLong()) return true;
        sayGoodbye();
        return false;
    }

    Clock::time_point nextDeadline() const {
        if (children_.empty()) return idleSince_ + options_.idleLimit;
        return children_.front().deadline;  // the oldest
    }

    bool isIdleForLong() const {
        return children_.empty() && Clock::now() >= idleSince_ + options_.idleLimit;
    }

    // A request that arrives after this is lost: the program then sees that it was not accepted,
    // and by this message that nothing died.
    static void sayGoodbye() {
        send(decoderSocket, &goodbye, sizeof goodbye, MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    bool takeRequest() {
        DecodeTask task;
        switch (receive(decoderSocket, task)) {
            case Received::task:
                start(task);
                return true;
            case Received::nothing:
                return true;
            case Received::end:
                break;
        }
        return false;
    }

    void start(const DecodeTask& task) {
        idleSince_ = Clock::now();
        // Without its sandbox no image is decoded: the pipe ends with no answer.
        if (write(task.answer.get(), &accepted, sizeof accepted) < 0 || !sandbox_) return;
        const pid_t pid = fork();
        if (pid == 0) runDecoderChild(task, *sandbox_, mappedBefore_, options_.decode);
        if (pid < 0) return;
        children_.push_back(
            {pid, FileDescriptor(processDescriptor(pid)), Clock::now() + options_.wallLimit});
    }

    void endAndReap() {
        std::erase_if(children_, [this](const Child& child) {
            const bool late = Clock::now() >= child.deadline;
            if (late) kill(child.pid, SIGKILL);
            if (waitpid(child.pid, nullptr, late ? 0 : WNOHANG) == 0) return false;
            idleSince_ = Clock::now();
            return true;
        });
    }

    DecoderServerOptions options_;
    std::optional<Sandbox> sandbox_;
    std::size_t mappedBefore_;
    std::vector<Child> children_;
    Clock::time_point idleSince_;
};

}  // namespace

int runDecoder(const DecoderServerOptions& options) {
    // Its child is nobody's to wait for, so that the program needs no look-out for its end.
    const pid_t pid = fork();
    if (pid != 0) _exit(pid > 0 ? 0 : 1);
    std::signal(SIGPIPE, SIG_IGN);
    if (chdir("/") != 0) return 1;
    warmUp();
    Server(options, Sandbox::prepare(childAnswer, childPixels)).serve();
    return 0;
}

}  // namespace glintmark::platform::image
