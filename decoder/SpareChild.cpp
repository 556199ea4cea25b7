#include "decoder/SpareChild.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "decoder/TaskReceiver.h"
#include "decoder/WarmUp.h"

namespace glintmark::decoder {

namespace {

constexpr std::uint8_t goAhead = 'w';

// pidfd_open(2), which the C library's header declares without C linkage.
FileDescriptor processDescriptor(pid_t pid) {
    return FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
}

// The number after the socket's. The child closes all higher ones.
constexpr int childChannel = decoderSocket + 1;

/// Exits if the parent has ended.
void awaitGoAhead() {
    std::uint8_t received = 0;
    if (read(childChannel, &received, sizeof received) != sizeof received) {
        _exit(0);
    }
}

/// Exits if no task can arrive any more.
DecodeTask awaitTask() {
    DecodeTask task;
    for (;;) {
        switch (receiveTask(decoderSocket, task)) {
            case Received::task:
                return task;
            case Received::nothing:
                break;
            case Received::end:
                _exit(0);
        }
    }
}

[[noreturn]] void serveOne(const FileDescriptor& channel, pid_t parent, const Sandbox& sandbox,
                           std::size_t mappedBefore, DecodeFunction decode) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(0);  // the parent ended before the call
    }
    if (dup2(channel.get(), childChannel) < 0 || close_range(childChannel + 1, ~0U, 0) != 0) {
        _exit(0);
    }
    warmUpForPNG();
    awaitGoAhead();
    const DecodeTask task = awaitTask();
    // Before `accepted`: if the child is killed in between, the program sends the request again.
    if (write(childChannel, &task.slot, sizeof task.slot) != sizeof task.slot) {
        _exit(0);
    }
    if (task.slot == DecodeSlot::large) {
        awaitGoAhead();
    }
    if (write(task.answer.get(), &accepted, sizeof accepted) != sizeof accepted) {
        _exit(0);
    }
    runDecoderChild(task, sandbox, mappedBefore, decode);
}

}  // namespace

void sendGoAhead(const FileDescriptor& channel) {
    send(channel.get(), &goAhead, sizeof goAhead, MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::unique_ptr<SpareChild> SpareChild::fork(const Sandbox& sandbox, std::size_t mappedBefore,
                                             DecodeFunction decode) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return nullptr;
    }
    FileDescriptor ours(ends[0]);
    const FileDescriptor theirs(ends[1]);
    const pid_t parent = getpid();
    const pid_t pid = ::fork();
    if (pid == 0) {
        serveOne(theirs, parent, sandbox, mappedBefore, decode);
    }
    if (pid < 0) {
        return nullptr;
    }
    return std::unique_ptr<SpareChild>(
        new SpareChild({pid, processDescriptor(pid)}, std::move(ours)));
}

SpareChild::~SpareChild() {
    if (process_.pid < 0) {
        return;
    }
    kill(process_.pid, SIGKILL);
    waitpid(process_.pid, nullptr, 0);
}

void SpareChild::allow() {
    if (!allowed_) {
        sendGoAhead(channel_);
    }
    allowed_ = true;
}

std::optional<DecodeSlot> SpareChild::takenSlot() const {
    DecodeSlot slot{};
    if (recv(channel_.get(), &slot, sizeof slot, MSG_DONTWAIT) != sizeof slot) {
        return std::nullopt;
    }
    return slot;
}

}  // namespace glintmark::decoder
