#pragma once

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
};

}  // namespace glintmark::test
