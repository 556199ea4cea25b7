// Preloaded into the program (ld.so(8), LD_PRELOAD): makes calls of the C library fail, hang or
// return a wrong time. The orders are in a file that the test has mapped too and changes meanwhile
// (faults.py).

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr const char* variable = "GLINTMARK_FAULTS";
constexpr std::size_t maximumOrders = 128;

// Instead of an error number.
constexpr int hang = -1;
constexpr int cutShort = -2;  // write(2) writes half of the bytes
constexpr int hold = -3;      // waits until the test changes the order

/// Counts the calls of `function` on paths that contain `subject`. Those from number `first` to
/// `last` fail. faults.py packs it.
struct Order {
    std::array<char, 24> function;
    std::array<char, 96> subject;
    std::atomic<std::int32_t> error;
    std::uint32_t first;
    std::uint32_t last;
    std::atomic<std::uint32_t> seen;
};

struct Orders {
    std::atomic<std::uint32_t> count;
    std::atomic<std::int32_t> secondsAhead;  // added to the wall clock
    std::array<Order, maximumOrders> list;
};

Orders* mapOrders() {
    const char* path = std::getenv(variable);
    const auto file =
        path == nullptr ? -1 : syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC);
    if (file < 0) {
        return nullptr;
    }
    void* memory = mmap(nullptr, sizeof(Orders), PROT_READ | PROT_WRITE, MAP_SHARED,
                        static_cast<int>(file), 0);
    syscall(SYS_close, file);
    return memory == MAP_FAILED ? nullptr : static_cast<Orders*>(memory);
}

Orders* orders() {
    static Orders* const mapped = mapOrders();
    return mapped;
}

[[noreturn]] void hangForever() {
    for (;;) {
        syscall(SYS_pause);
    }
}

/// Waits while the order holds. Returns the error then; zero if the test released the call.
int waitWhileHeld(const Order& order) {
    while (order.error == hold) {
        constexpr timespec pause{0, 1'000'000};
        syscall(SYS_nanosleep, &pause, nullptr);
    }
    return order.error;
}

/// The error that this call must fail with; zero if it must not.
int errorFor(const char* function, const char* subject) {
    int error = 0;
    const auto count = orders() == nullptr ? 0 : orders()->count.load();
    for (std::uint32_t i = 0; i < count; ++i) {
        auto& order = orders()->list.at(i);
        if (std::strcmp(order.function.data(), function) == 0 &&
            std::strstr(subject, order.subject.data()) != nullptr) {
            const auto number = ++order.seen;
            if (number >= order.first && number <= order.last) {
                error = waitWhileHeld(order);
            }
        }
    }
    if (error == hang) {
        hangForever();
    }
    return error;
}

bool fails(const char* function, const char* subject) {
    const int errorBefore = errno;
    const int error = errorFor(function, subject == nullptr ? "" : subject);
    errno = error != 0 ? error : errorBefore;
    return error != 0;
}

/// For calls with a descriptor. Its path comes from /proc/self/fd, proc(5).
bool fails(const char* function, int descriptor) {
    if (orders() == nullptr || orders()->count == 0) {
        return false;
    }
    const int errorBefore = errno;
    std::array<char, 32> link{};
    std::array<char, PATH_MAX + 1> path{};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
    syscall(SYS_readlink, link.data(), path.data(), PATH_MAX);
    errno = errorBefore;
    return fails(function, path.data());
}

mode_t modeIn(int flags, std::va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

std::int32_t secondsAhead() { return orders() == nullptr ? 0 : orders()->secondsAhead.load(); }

}  // namespace

// The functions below replace those of the C library, so they have its names and declarations.
#define REAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define STAND_IN(result, name, parameters, subject, failure, arguments) \
    result name parameters {                                            \
        static const auto real = REAL(name);                            \
        return fails(#name, subject) ? (failure) : real arguments;      \
    }
#define OPEN(name)                                                 \
    int name(const char* path, int flags, ...) {                   \
        static const auto real = REAL(name);                       \
        std::va_list rest;                                         \
        va_start(rest, flags);                                     \
        const auto mode = modeIn(flags, rest);                     \
        va_end(rest);                                              \
        return fails("open", path) ? -1 : real(path, flags, mode); \
    }

extern "C" {

OPEN(open)
OPEN(open64)

/// The fortified open(2), where the compiler does not know the flags.
int __open_2(const char* path, int flags) { return open(path, flags); }
STAND_IN(int, mkostemps, (char* path, int length, int flags), path, -1, (path, length, flags))
STAND_IN(int, mkdir, (const char* path, mode_t mode) noexcept, path, -1, (path, mode))
STAND_IN(int, rename, (const char* from, const char* to) noexcept, to, -1, (from, to))
STAND_IN(int, unlink, (const char* path) noexcept, path, -1, (path))
STAND_IN(int, stat, (const char* path, struct stat* status) noexcept, path, -1, (path, status))
STAND_IN(int, lstat, (const char* path, struct stat* status) noexcept, path, -1, (path, status))
STAND_IN(int, statx,
         (int at, const char* path, int flags, unsigned mask, struct statx* status) noexcept, path,
         -1, (at, path, flags, mask, status))
STAND_IN(int, utimensat,
         (int at, const char* path, const struct timespec* times, int flags) noexcept, path, -1,
         (at, path, times, flags))
STAND_IN(int, setxattr,
         (const char* path, const char* name, const void* value, size_t size, int flags) noexcept,
         path, -1, (path, name, value, size, flags))
STAND_IN(ssize_t, getxattr, (const char* path, const char* name, void* value, size_t size) noexcept,
         path, -1, (path, name, value, size))

STAND_IN(int, fchmod, (int file, mode_t mode) noexcept, file, -1, (file, mode))
STAND_IN(ssize_t, read, (int file, void* bytes, size_t size), file, -1, (file, bytes, size))
STAND_IN(int, fsync, (int file), file, -1, (file))
STAND_IN(int, fstat, (int file, struct stat* status) noexcept, file, -1, (file, status))
STAND_IN(int, fstatfs, (int file, struct statfs* status) noexcept, file, -1, (file, status))
STAND_IN(int, ftruncate, (int file, off_t size) noexcept, file, -1, (file, size))
STAND_IN(ssize_t, getdents64, (int file, void* bytes, size_t size) noexcept, file, -1,
         (file, bytes, size))

STAND_IN(int, inotify_init1, (int flags) noexcept, "", -1, (flags))
STAND_IN(int, inotify_add_watch, (int inotify, const char* path, uint32_t mask) noexcept, path, -1,
         (inotify, path, mask))
STAND_IN(int, eventfd, (unsigned count, int flags) noexcept, "", -1, (count, flags))
STAND_IN(int, ppoll,
         (struct pollfd * polled, nfds_t count, const struct timespec* time,
          const sigset_t* signals),
         "", -1, (polled, count, time, signals))

STAND_IN(int, getaddrinfo,
         (const char* host, const char* service, const struct addrinfo* hints,
          struct addrinfo** result),
         host, EAI_SYSTEM, (host, service, hints, result))
STAND_IN(int, pthread_create,
         (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*),
          void* argument) noexcept,
         "", errno, (thread, attributes, body, argument))

ssize_t write(int file, const void* bytes, size_t size) {
    static const auto real = REAL(write);
    if (!fails("write", file)) {
        return real(file, bytes, size);
    }
    return errno == cutShort ? real(file, bytes, size / 2) : -1;
}

/// It closes the descriptor even if it fails, as close(2) on Linux does.
int close(int file) {
    static const auto real = REAL(close);
    const bool mustFail = fails("close", file);
    const int error = errno;
    const int result = real(file);
    if (mustFail) {
        errno = error;
    }
    return mustFail ? -1 : result;
}

int clock_gettime(clockid_t clock, struct timespec* time) noexcept {
    static const auto real = REAL(clock_gettime);
    const int result = real(clock, time);
    if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) {
        time->tv_sec += secondsAhead();
    }
    return result;
}

time_t time(time_t* result) noexcept {
    static const auto real = REAL(time);
    const auto now = real(nullptr) + secondsAhead();
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

int gettimeofday(struct timeval* time, void* zone) noexcept {
    static const auto real = REAL(gettimeofday);
    const int result = real(time, zone);
    time->tv_sec += secondsAhead();
    return result;
}

}  // extern "C"
