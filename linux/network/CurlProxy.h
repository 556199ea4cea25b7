#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "linux/network/CurlRedirect.h"

namespace glintmark::platform {

/// A proxy as the user's environment names it.
struct Proxy {
    std::string address;
    std::optional<AddressParts> parts;  ///< Absent if libcurl refuses the address.
};

/// The proxies that the environment names, by the rules of libcurl-env(3). libcurl would find the
/// same, but does not say which it found, and an address means something else to a proxy than to
/// this machine.
struct ProxySettings {
    static ProxySettings fromEnvironment();

    /// The proxy for requests to `host` (in lower case, an IPv6 address in brackets); null for
    /// none. Valid as long as the settings.
    const Proxy* proxyFor(std::string_view scheme, std::string_view host) const;

    std::optional<Proxy> http{};
    std::optional<Proxy> https{};
    std::string exceptions{};  ///< A list for `isExcepted`.
};

/// True if the list `exceptions` (as in "no_proxy") contains `host`: names with all names below
/// them, IP addresses, and networks as "ADDRESS/BITS"; "*" alone contains every host.
bool isExcepted(std::string_view exceptions, std::string_view host);

}  // namespace glintmark::platform
