#include "tests/support/Connections.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <mutex>
#include <utility>

namespace glintmark::test {

namespace {

std::mutex mutex;
bool recording = false;             // guarded by the mutex
std::vector<std::string> attempts;  // guarded by the mutex

/// Records the attempt. False if it must be refused.
bool mayConnect(int socket, const sockaddr& address) {
    int type = 0;
    socklen_t length = sizeof(type);
    ::getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &length);
    const std::lock_guard lock(mutex);
    if (!recording || type != SOCK_STREAM) {
        return true;
    }
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address.sa_family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(address);
        ::inet_ntop(AF_INET, &four.sin_addr, text.data(), text.size());
        attempts.push_back(text.data() + (":" + std::to_string(ntohs(four.sin_port))));
        return std::string(text.data()).starts_with("127.");
    }
    if (address.sa_family == AF_INET6) {
        const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
        ::inet_ntop(AF_INET6, &six.sin6_addr, text.data(), text.size());
        attempts.push_back(text.data() + (":" + std::to_string(ntohs(six.sin6_port))));
        return IN6_IS_ADDR_LOOPBACK(&six.sin6_addr);
    }
    return true;
}

}  // namespace

Connections::Connections() {
    const std::lock_guard lock(mutex);
    recording = true;
    attempts.clear();
}

Connections::~Connections() {
    const std::lock_guard lock(mutex);
    recording = false;
}

std::vector<std::string> Connections::take() {
    const std::lock_guard lock(mutex);
    return std::exchange(attempts, {});
}

}  // namespace glintmark::test

extern "C" int connect(int socket, const sockaddr* address, socklen_t length) {
    using Function = int (*)(int, const sockaddr*, socklen_t);
    static const auto next = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "connect"));
    if (!glintmark::test::mayConnect(socket, *address)) {
        errno = ECONNREFUSED;
        return -1;
    }
    return next(socket, address, length);
}
