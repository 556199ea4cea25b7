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

constexpr std::uint8_t word = 'w';

// pidfd_open(2), which the C library's header declares without C linkage.
FileDescriptor processDescriptor(pid_t pid) {
    return FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
}

// Next to the socket; of its parent's other descriptors it keeps none.
constexpr int childChannel = decoderSocket + 1;

/// Ends the process when the parent has ended instead.
void awaitWord() {
    std::uint8_t received = 0;
    if (read(childChannel, &received, sizeof received) != sizeof received) {
        _exit(0);
    }
}

/// Ends the process when there will be none.
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
        _exit(0);  // it ended before that
    }
    if (dup2(channel.get(), childChannel) < 0 || close_range(childChannel + 1, ~0U, 0) != 0) {
        _exit(0);
    }
    warmUpForPNG();
    awaitWord();
    const DecodeTask task = awaitTask();
    // Said first: a child that is killed before the program knows of its acceptance is no harm.
    if (write(childChannel, &task.slot, sizeof task.slot) != sizeof task.slot) {
        _exit(0);
    }
    if (task.slot == DecodeSlot::large) {
        awaitWord();
    }
    if (write(task.answer.get(), &accepted, sizeof accepted) != sizeof accepted) {
        _exit(0);
    }
    runDecoderChild(task, sandbox, mappedBefore, decode);
}

}  // namespace

void giveWord(const FileDescriptor& channel) {
    send(channel.get(), &word, sizeof word, MSG_NOSIGNAL | MSG_DONTWAIT);
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
        giveWord(channel_);
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
