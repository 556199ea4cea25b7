#pragma once

#include "tests/support/Event.h"

namespace glintmark::test {

/// While this lives, every host name that ends in ".test" stands for 127.0.0.1 in this process, and
/// looking up one that begins with "stuck." takes until `release` is called. Other names are looked
/// up as ever. (The program's own getaddrinfo goes before the C library's.)
class HostNames {
public:
    HostNames();
    ~HostNames();
    HostNames(const HostNames&) = delete;
    HostNames& operator=(const HostNames&) = delete;

    static void release();
};

}  // namespace glintmark::test
