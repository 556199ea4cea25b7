#include "decoder/ForkedProcess.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace glintmark::decoder {

ForkedProcess forkProcess(const std::function<void()>& body) {
    const pid_t parent = getpid();
    ForkedProcess process{fork(), {}};
    if (process.pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent) {  // else the parent ended before the call
            body();
        }
        _exit(0);
    }
    if (process.pid < 0) {
        return {};
    }
    // pidfd_open(2), which the C library's header declares without C linkage.
    process.descriptor = FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, process.pid, 0)));
    if (!process.descriptor) {
        kill(process.pid, SIGKILL);
        waitpid(process.pid, nullptr, 0);
        return {};
    }
    return process;
}

}  // namespace glintmark::decoder
