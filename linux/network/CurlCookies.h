#pragma once

#include <cstddef>

#include "linux/network/CurlHandles.h"

namespace glintmark::platform {

/// The session's cookies and TLS tickets, in memory only. For one thread at a time.
class CurlCookies {
public:
    CurlCookies();

    /// Makes the transfer use them.
    void attach(CURL* handle);

    /// Set-Cookie fields of that many bytes came with the transfer of `handle`. libcurl puts no
    /// bound on their number, so all are forgotten when too much has come.
    void received(CURL* handle, std::size_t bytes);

private:
    CurlShareHandle share_;
    std::size_t bytes_ = 0;
};

}  // namespace glintmark::platform
