#include "linux/images/DecoderHelper.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <utility>

#include "decoder/DescriptorMessage.h"

namespace glintmark::platform {

namespace {

/// posix_spawn(3) with an empty environment, the null device as standard streams and `socket` as
/// the only other descriptor. The process gets a new session, so that no terminal's signals reach
/// it. Unlike fork(2) this is safe while other threads run.
std::optional<pid_t> spawn(const std::string& path, int socket) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
#ifndef GLINTMARK_SANITIZED  // the sanitizers report to standard error
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
#endif
    posix_spawn_file_actions_adddup2(&actions, socket, decoder::helperSocket);
    posix_spawn_file_actions_addclosefrom_np(&actions, decoder::helperSocket + 1);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);

    std::string name = path;
    std::array<char*, 2> arguments = {name.data(), nullptr};
    std::array<char*, 1> environment = {nullptr};
    pid_t pid = -1;
    const int error = posix_spawn(&pid, path.c_str(), &actions, &attributes, arguments.data(),
                                  environment.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? std::optional(pid) : std::nullopt;
}

}  // namespace

DecoderHelper::DecoderHelper(std::string path)
    : path_(std::move(path)), executable_(open(path_.c_str(), O_PATH | O_CLOEXEC)) {}

FileDescriptor DecoderHelper::start() {
    decoder::SocketPair sockets;
    if (!sockets.ours) {
        return {};
    }
    // The path names this process's descriptor, because the new process closes its own copy before
    // it executes the file.
    const auto held =
        "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(executable_.get());
    auto pid = executable_ ? spawn(held, sockets.theirs.get()) : std::nullopt;
    if (!pid) {
        pid = spawn(path_, sockets.theirs.get());
    }
    if (!pid) {
        return {};
    }
    starter_ = FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, *pid, 0)));
    return std::move(sockets.ours);
}

void DecoderHelper::endStart() {
    if (const FileDescriptor starter = std::move(starter_)) {
        // It has forked the helper and exits, or it hangs.
        syscall(SYS_pidfd_send_signal, starter.get(), SIGKILL, nullptr, 0);
        siginfo_t ignored{};
        while (waitid(P_PIDFD, static_cast<id_t>(starter.get()), &ignored, WEXITED) != 0 &&
               errno == EINTR) {
        }
    }
}

}  // namespace glintmark::platform
