#include "linux/process/TerminationSignals.h"

#include <glib-unix.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace glintmark::platform {

namespace {

constexpr std::array terminationSignals{SIGTERM, SIGINT, SIGHUP};
constexpr int noDescriptor = -1;

// The handlers below use only these variables and the functions that signal-safety(7) allows.
std::atomic<int> counterDescriptor{noDescriptor};
std::atomic<bool> isTerminating{false};
timer_t timer{};
itimerspec timerSetting{};

void exitNow(int /*signal*/) { _exit(EXIT_SUCCESS); }

void noteSignal(int /*signal*/) {
    const int counter = counterDescriptor;
    if (counter == noDescriptor) {
        _exit(EXIT_SUCCESS);
    }
    const int errorBefore = errno;
    if (!isTerminating.exchange(true)) {
        timer_settime(timer, 0, &timerSetting, nullptr);
    }
    constexpr std::uint64_t one = 1;
    static_cast<void>(!write(counter, &one, sizeof one));  // a full counter wakes the reader, too
    errno = errorBefore;
}

void setHandler(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

timespec timespecOf(std::chrono::milliseconds duration) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(duration);
    return {static_cast<time_t>(seconds.count()),
            static_cast<long>(std::chrono::nanoseconds(duration - seconds).count())};
}

}  // namespace

TerminationSignals::TerminationSignals(std::chrono::milliseconds timeout)
    : arrived_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    timerSetting.it_value = timespecOf(timeout);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    timer_create(CLOCK_MONOTONIC, &event, &timer);
    setHandler(SIGALRM, exitNow);
    for (const int signal : terminationSignals) {
        setHandler(signal, noteSignal);
    }
}

TerminationSignals::~TerminationSignals() {
    for (const int signal : terminationSignals) {
        setHandler(signal, SIG_DFL);
    }
    counterDescriptor = noDescriptor;
    timer_delete(timer);
    setHandler(SIGALRM, SIG_DFL);
    isTerminating = false;
}

void TerminationSignals::handle(std::function<void()> handler) {
    handler_ = std::move(handler);
    const auto react = [](int descriptor, GIOCondition /*condition*/, gpointer data) -> gboolean {
        std::uint64_t count = 0;
        if (read(descriptor, &count, sizeof count) == ssize_t{sizeof count}) {
            static_cast<TerminationSignals*>(data)->handler_();
        }
        return G_SOURCE_CONTINUE;
    };
    source_ = GSourceId(g_unix_fd_add(arrived_.get(), G_IO_IN, react, this));
    counterDescriptor = arrived_.get();
}

}  // namespace glintmark::platform
