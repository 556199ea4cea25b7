#include "platform/Platform.h"

#include <atomic>

#include "base/system/FatalError.h"

namespace glintmark::platform {

namespace {

std::atomic<const Services*> current = nullptr;

}  // namespace

const Services& services() {
    const auto* services = current.load(std::memory_order_acquire);
    if (services == nullptr) {
        fatalError("services() called outside a ServicesScope");
    }
    return *services;
}

ServicesScope::ServicesScope(const Services& services) {
    if (current.exchange(&services, std::memory_order_acq_rel) != nullptr) {
        fatalError("ServicesScope within a ServicesScope");
    }
}

ServicesScope::~ServicesScope() { current.store(nullptr, std::memory_order_release); }

}  // namespace glintmark::platform
