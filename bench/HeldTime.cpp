// Preloaded into the program, this measures how long its main thread does not look at its events:
// from the return of one poll(2) to the call of the next. It measures with and without the time
// that the thread waited for a processor. The figures go to the file that HELD_TIME names. The file
// must be as long as Figures, and zeroing it restarts the measurement.

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

constexpr double limit = 0.050;  // seconds

/// road.py reads it. Times are in seconds; `own` times are without the waits for a processor.
struct Figures {
    double maximum = 0;
    double maximumOwn = 0;
    std::uint64_t count = 0;
    std::uint64_t countOwnOverLimit = 0;
};

Figures* mappedFigures() {
    const char* path = std::getenv("HELD_TIME");
    const int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    void* memory = mmap(nullptr, sizeof(Figures), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<Figures*>(memory);
}

/// In seconds.
struct Moment {
    double time = 0;
    double waited = 0;  ///< For a processor so far: /proc/PID/schedstat, proc(5).
};

double secondsWaited() {
    static const int file = open("/proc/self/schedstat", O_RDONLY | O_CLOEXEC);
    std::array<char, 128> text{};
    if (pread(file, text.data(), text.size() - 1, 0) <= 0) {
        return 0;
    }
    char* second = nullptr;
    std::strtoull(text.data(), &second, 10);
    return static_cast<double>(std::strtoull(second, nullptr, 10)) * 1e-9;
}

Moment now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return {static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9,
            secondsWaited()};
}

/// For the main thread only.
class Stopwatch {
public:
    void stop() {
        if (figures_ == nullptr || began_.time == 0) {
            return;
        }
        const Moment end = now();
        const double held = end.time - began_.time;
        const double own = held - (end.waited - began_.waited);
        figures_->maximum = std::max(figures_->maximum, held);
        figures_->maximumOwn = std::max(figures_->maximumOwn, own);
        ++figures_->count;
        figures_->countOwnOverLimit += own > limit ? 1 : 0;
    }
    void start() { began_ = now(); }

private:
    Figures* figures_ = mappedFigures();
    Moment began_;
};

}  // namespace

extern "C" int poll(pollfd* watched, nfds_t count, int timeout) {
    using Poll = int (*)(pollfd*, nfds_t, int);
    static const auto next = reinterpret_cast<Poll>(dlsym(RTLD_NEXT, "poll"));
    if (gettid() != getpid()) {
        return next(watched, count, timeout);
    }
    static Stopwatch stopwatch;
    stopwatch.stop();
    const int ready = next(watched, count, timeout);
    stopwatch.start();
    return ready;
}
