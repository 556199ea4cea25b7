// Preloaded into the program, this tells how long its main thread was away from its events: the
// time from the return of one poll(2) to the call of the next, with and without what it waited
// meanwhile for a processor that others had. The figures go to the file that HELD_TIME names, which
// must be as long as Figures; whoever zeroes it begins anew.

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

constexpr double tooLong = 0.050;  // seconds

struct Figures {
    double longest = 0;          // seconds
    double longestByItself = 0;  // seconds, without the waits for a processor
    std::uint64_t times = 0;
    std::uint64_t timesTooLong = 0;
};

Figures* mappedFigures() {
    const char* path = std::getenv("HELD_TIME");
    const int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    void* memory = mmap(nullptr, sizeof(Figures), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<Figures*>(memory);
}

/// All in seconds.
struct Moment {
    double time = 0;
    double waited = 0;  ///< For a processor, by proc(5), /proc/PID/schedstat.
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

/// Of the main thread only.
class Stopwatch {
public:
    void stop() {
        if (figures_ == nullptr || began_.time == 0) {
            return;
        }
        const Moment end = now();
        const double held = end.time - began_.time;
        const double byItself = held - (end.waited - began_.waited);
        figures_->longest = std::max(figures_->longest, held);
        figures_->longestByItself = std::max(figures_->longestByItself, byItself);
        ++figures_->times;
        figures_->timesTooLong += byItself > tooLong ? 1 : 0;
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
