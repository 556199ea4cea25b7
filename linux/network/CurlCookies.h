#pragma once

#include <cstddef>

#include "linux/network/CurlHandles.h"

namespace glintmark::platform {

/// The session's cookies and TLS tickets, kept in memory only. For one thread at a time.
class CurlCookies {
public:
    CurlCookies();

    /// Makes the transfer of `handle` use them.
    void attach(CURL* handle);

    /// Call when the transfer of `handle` has received Set-Cookie fields of `bytes` bytes. libcurl
    /// does not limit the number of cookies, so too many bytes clear them all.
    void received(CURL* handle, std::size_t bytes);

private:
    CurlShareHandle share_;
    std::size_t bytes_ = 0;
};

}  // namespace glintmark::platform
