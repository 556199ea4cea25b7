#include "linux/process/EndingSignals.h"

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

constexpr std::array endingSignals{SIGTERM, SIGINT, SIGHUP};
constexpr int noDescriptor = -1;

// What the handlers below may touch: signal-safety(7) allows little.
std::atomic<int> eventCounter{noDescriptor};
std::atomic<bool> isEnding{false};
timer_t limit{};
itimerspec patienceLeft{};

void endHere(int /*signal*/) { _exit(EXIT_SUCCESS); }

void noteSignal(int /*signal*/) {
    const int counter = eventCounter;
    if (counter == noDescriptor) {
        _exit(EXIT_SUCCESS);
    }
    const int errorBefore = errno;
    if (!isEnding.exchange(true)) {
        timer_settime(limit, 0, &patienceLeft, nullptr);
    }
    constexpr std::uint64_t one = 1;
    static_cast<void>(!write(counter, &one, sizeof one));  // a full counter is raised already
    errno = errorBefore;
}

void setHandler(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

timespec asTimespec(std::chrono::milliseconds duration) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(duration);
    return {static_cast<time_t>(seconds.count()),
            static_cast<long>(std::chrono::nanoseconds(duration - seconds).count())};
}

}  // namespace

EndingSignals::EndingSignals(std::chrono::milliseconds patience)
    : arrived_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    patienceLeft.it_value = asTimespec(patience);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    timer_create(CLOCK_MONOTONIC, &event, &limit);
    setHandler(SIGALRM, endHere);
    for (const int signal : endingSignals) {
        setHandler(signal, noteSignal);
    }
}

EndingSignals::~EndingSignals() {
    for (const int signal : endingSignals) {
        setHandler(signal, SIG_DFL);
    }
    eventCounter = noDescriptor;
    timer_delete(limit);
    setHandler(SIGALRM, SIG_DFL);
    isEnding = false;
}

void EndingSignals::handle(std::function<void()> handler) {
    handler_ = std::move(handler);
    const auto react = [](int descriptor, GIOCondition /*condition*/, gpointer data) -> gboolean {
        std::uint64_t count = 0;
        if (read(descriptor, &count, sizeof count) == ssize_t{sizeof count}) {
            static_cast<EndingSignals*>(data)->handler_();
        }
        return G_SOURCE_CONTINUE;
    };
    source_ = GSourceId(g_unix_fd_add(arrived_.get(), G_IO_IN, react, this));
    eventCounter = arrived_.get();
}

}  // namespace glintmark::platform
