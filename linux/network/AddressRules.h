#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/URLSession.h"

namespace glintmark::platform {

/// What an answer may name (docs/decisions/private-addresses.md). Pure functions; any thread.
/// Absent always means an address that no answer may name: multicast, reserved, or no IP address.

/// The space of an IP address, by the special-purpose address registries of IANA (RFC 6890).
/// Addresses that contain an IPv4 address count as that one: IPv4-mapped (RFC 4291, section
/// 2.5.5.2), NAT64 (RFC 6052, section 2.1) and 6to4 (RFC 3056, section 2).
std::optional<AddressSpace> addressSpaceOf(const sockaddr& address);

/// The space of a host that only a proxy will look up. IP addresses have their own, in every
/// spelling that inet_aton(3) reads. `host` is in lower case, an IPv6 address in brackets.
std::optional<AddressSpace> addressSpaceOfName(std::string_view host);

/// True for the ports that the Fetch standard blocks ("port blocking"): those of other protocols.
bool isBlockedPort(std::uint16_t port);

}  // namespace glintmark::platform
