#include "tests/support/HostNames.h"

#include <dlfcn.h>
#include <netdb.h>

#include <memory>
#include <mutex>
#include <string_view>

namespace glintmark::test {

namespace {

std::mutex mutex;
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

/// `name`, or the address that replaces it.
const char* resolvable(const char* name) {
    const std::string_view text(name == nullptr ? "" : name);
    const auto event = text.ends_with(".test") ? current() : nullptr;
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
    return next(glintmark::test::resolvable(name), service, hints, result);
}
