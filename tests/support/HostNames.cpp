#include "tests/support/HostNames.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string_view>

namespace glintmark::test {

namespace {

std::mutex mutex;
std::atomic<std::uint16_t> serverPort = 0;
std::shared_ptr<Event> released;  // null if no `HostNames` exists; guarded by the mutex

std::shared_ptr<Event> current() {
    const std::lock_guard lock(mutex);
    return released;
}

}  // namespace

HostNames::HostNames() {
    const std::lock_guard lock(mutex);
    released = std::make_shared<Event>();
}

HostNames::~HostNames() {
    release();
    const std::lock_guard lock(mutex);
    released = nullptr;
}

void HostNames::release() {
    if (const auto event = current()) {
        event->set();
    }
}

void HostNames::askServerAt(std::uint16_t port) { serverPort = port; }

/// Replaces the name servers of this thread's look-ups.
void useNameServer(std::string_view name) {
    if (serverPort == 0 || !name.ends_with(".dns.test")) {
        return;
    }
    if ((_res.options & RES_INIT) == 0) {
        ::res_init();
    }
    _res.nscount = 1;
    _res.nsaddr_list[0].sin_family = AF_INET;
    _res.nsaddr_list[0].sin_port = htons(serverPort);
    _res.nsaddr_list[0].sin_addr.s_addr = htonl(INADDR_LOOPBACK);
}

/// `name`, or the address that replaces it.
const char* resolvable(const char* name) {
    std::string_view text(name == nullptr ? "" : name);
    if (text.ends_with('.')) {
        text.remove_suffix(1);
    }
    const auto event =
        text.ends_with(".test") && !text.ends_with(".dns.test") ? current() : nullptr;
    if (!event) {
        return name;
    }
    if (text.starts_with("stuck.")) {
        event->wait();
    }
    return "127.0.0.1";
}

}  // namespace glintmark::test

extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** result) {
    using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto next = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    glintmark::test::useNameServer(name == nullptr ? "" : name);
    return next(glintmark::test::resolvable(name), service, hints, result);
}
