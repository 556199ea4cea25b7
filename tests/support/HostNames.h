#pragma once

#include <cstdint>

#include "tests/support/Event.h"

namespace glintmark::test {

/// While this exists, every host name that ends with ".test" resolves to 127.0.0.1 in this process,
/// and a lookup of one that begins with "stuck." blocks until `release` is called. Other names are
/// looked up as usual. (The program's getaddrinfo is called instead of the C library's.)
class HostNames {
public:
    HostNames();
    ~HostNames();
    HostNames(const HostNames&) = delete;
    HostNames& operator=(const HostNames&) = delete;

    static void release();

    /// Names that end with ".dns.test" are looked up at the DNS server on this port of 127.0.0.1; 0
    /// ends that. See `NameServer`.
    static void askServerAt(std::uint16_t port);
};

}  // namespace glintmark::test
