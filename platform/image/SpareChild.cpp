#include "platform/image/SpareChild.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "platform/image/RequestMessage.h"
#include "platform/image/TaskReceiver.h"
#include "platform/image/WarmUp.h"

namespace glintmark::platform::image {

namespace {

// pidfd_open(2), which the C library's header declares without C linkage.
FileDescriptor processDescriptor(pid_t pid) {
    return FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
}

// In place of the socket of its parent, whose other descriptors it does not keep either.
constexpr int childChannel = decoderSocket;

[[noreturn]] void waitForTask(const FileDescriptor& channel, const Sandbox& sandbox,
                              std::size_t mappedBefore, DecodeFunction decode) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (dup2(channel.get(), childChannel) < 0 || close_range(childChannel + 1, ~0U, 0) != 0) {
        _exit(0);
    }
    warmUpForPNG();
    DecodeTask task;
    if (receiveTask(childChannel, task) != Received::task) _exit(0);
    runDecoderChild(task, sandbox, mappedBefore, decode);
}

}  // namespace

std::unique_ptr<SpareChild> SpareChild::fork(const Sandbox& sandbox, std::size_t mappedBefore,
                                             DecodeFunction decode) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return nullptr;
    }
    FileDescriptor ours(ends[0]);
    const FileDescriptor theirs(ends[1]);
    const pid_t pid = ::fork();
    if (pid == 0) waitForTask(theirs, sandbox, mappedBefore, decode);
    if (pid < 0) return nullptr;
    return std::unique_ptr<SpareChild>(
        new SpareChild({pid, processDescriptor(pid)}, std::move(ours)));
}

SpareChild::~SpareChild() {
    if (process_.pid < 0) return;
    kill(process_.pid, SIGKILL);
    waitpid(process_.pid, nullptr, 0);
}

bool SpareChild::begin(const DecodeTask& task) const {
    return sendRequest(channel_.get(), {task.slot},
                       {task.encoded.get(), task.pixels.get(), task.answer.get()});
}

}  // namespace glintmark::platform::image
