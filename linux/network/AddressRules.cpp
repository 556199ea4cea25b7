#include "linux/network/AddressRules.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace glintmark::platform {

namespace {

constexpr auto loopback = AddressSpace::loopback;
constexpr auto local = AddressSpace::local;
constexpr auto everyone = AddressSpace::everyone;
constexpr std::optional<AddressSpace> reserved;

/// The addresses that begin with the first `length` bits of `prefix`.
template <typename Bits>
struct Range {
    Bits prefix;
    int length;
    std::optional<AddressSpace> space;
};

// The first range that contains an address decides.

constexpr std::array<Range<std::uint32_t>, 16> ranges4{{
    {0x00000000, 8, loopback},   // 0.0.0.0/8, "this host": Linux connects to itself
    {0x7F000000, 8, loopback},   // 127.0.0.0/8
    {0x0A000000, 8, local},      // 10.0.0.0/8
    {0xAC100000, 12, local},     // 172.16.0.0/12
    {0xC0A80000, 16, local},     // 192.168.0.0/16
    {0xA9FE0000, 16, local},     // 169.254.0.0/16, link-local
    {0x64400000, 10, local},     // 100.64.0.0/10, shared by a provider's customers
    {0xC6120000, 15, local},     // 198.18.0.0/15, benchmarks; some gateways use it internally
    {0xC0000000, 24, reserved},  // 192.0.0.0/24, protocol assignments
    {0xC0000200, 24, reserved},  // 192.0.2.0/24, documentation
    {0xC6336400, 24, reserved},  // 198.51.100.0/24, documentation
    {0xCB007100, 24, reserved},  // 203.0.113.0/24, documentation
    {0xC0586300, 24, reserved},  // 192.88.99.0/24, former relays of 6to4
    {0xE0000000, 4, reserved},   // 224.0.0.0/4, multicast
    {0xF0000000, 4, reserved},   // 240.0.0.0/4, with the broadcast address
    {0x00000000, 0, everyone},
}};

/// By the first half of the address.
constexpr std::array<Range<std::uint64_t>, 9> ranges6{{
    {0xFC00'0000'0000'0000, 7, local},      // fc00::/7
    {0xFE80'0000'0000'0000, 10, local},     // fe80::/10, link-local
    {0xFEC0'0000'0000'0000, 10, local},     // fec0::/10, former site-local
    {0x0064'FF9B'0001'0000, 48, local},     // 64:ff9b:1::/48, a network's own NAT64
    {0x2001'0002'0000'0000, 48, local},     // 2001:2::/48, benchmarks
    {0x2001'0DB8'0000'0000, 32, reserved},  // 2001:db8::/32, documentation
    {0x3FFF'0000'0000'0000, 20, reserved},  // 3fff::/20, documentation
    {0x2000'0000'0000'0000, 3, everyone},   // 2000::/3, all that is assigned
    {0x0000'0000'0000'0000, 0, reserved},   // among them ff00::/8, multicast
}};

template <typename Bits, std::size_t count>
std::optional<AddressSpace> find(const std::array<Range<Bits>, count>& ranges, Bits address) {
    constexpr int width = sizeof(Bits) * 8;
    const auto found = std::ranges::find_if(ranges, [&](const Range<Bits>& range) {
        return range.length == 0 || (address ^ range.prefix) >> (width - range.length) == 0;
    });
    return found->space;
}

template <typename Bits>
Bits bigEndian(const std::uint8_t* bytes) {
    Bits value = 0;
    for (std::size_t i = 0; i < sizeof(Bits); ++i) {
        value = static_cast<Bits>(value << 8 | bytes[i]);
    }
    return value;
}

std::optional<AddressSpace> spaceOf(const in_addr& address) {
    return find(ranges4, static_cast<std::uint32_t>(ntohl(address.s_addr)));
}

std::optional<AddressSpace> spaceOf(const in6_addr& address) {
    constexpr std::uint64_t mapped = 0x0000'FFFF;  // ::ffff:0:0/96, the third quarter of it
    constexpr std::uint64_t nat64 = 0x0064'FF9B'0000'0000;
    constexpr std::uint16_t sixToFour = 0x2002;
    const std::uint8_t* const bytes = address.s6_addr;
    const auto high = bigEndian<std::uint64_t>(bytes);
    const auto low = bigEndian<std::uint64_t>(bytes + 8);
    if ((high == 0 && low >> 32 == mapped) || (high == nat64 && low >> 32 == 0)) {
        return find(ranges4, bigEndian<std::uint32_t>(bytes + 12));
    }
    if (bigEndian<std::uint16_t>(bytes) == sixToFour) {
        return find(ranges4, bigEndian<std::uint32_t>(bytes + 2));
    }
    if (high == 0 && low <= 1) {  // :: and ::1
        return loopback;
    }
    return find(ranges6, high);
}

bool isHostOrBelow(std::string_view host, std::string_view domain) {
    return host.ends_with(domain) &&
           (host.size() == domain.size() || host[host.size() - domain.size() - 1] == '.');
}

}  // namespace

std::optional<AddressSpace> addressSpaceOf(const sockaddr& address) {
    // Copied, because the argument may be less aligned than these.
    if (address.sa_family == AF_INET) {
        sockaddr_in full;
        std::memcpy(&full, &address, sizeof(full));
        return spaceOf(full.sin_addr);
    }
    if (address.sa_family == AF_INET6) {
        sockaddr_in6 full;
        std::memcpy(&full, &address, sizeof(full));
        return spaceOf(full.sin6_addr);
    }
    return reserved;
}

std::optional<AddressSpace> addressSpaceOfName(std::string_view host) {
    while (host.ends_with('.')) {
        host.remove_suffix(1);
    }
    if (host.starts_with('[')) {
        const std::string literal(host.substr(1, host.find_first_of("]%") - 1));
        in6_addr address{};
        return ::inet_pton(AF_INET6, literal.c_str(), &address) == 1 ? spaceOf(address) : reserved;
    }
    in_addr address{};
    if (::inet_aton(std::string(host).c_str(), &address) != 0) {
        return spaceOf(address);
    }
    if (isHostOrBelow(host, "localhost")) {
        return loopback;
    }
    const bool isLocal = isHostOrBelow(host, "local") || host.find('.') == std::string_view::npos;
    return isLocal ? local : everyone;
}

bool isBlockedPort(std::uint16_t port) {
    static constexpr std::array<std::uint16_t, 83> blocked{
        0,    1,    7,    9,    11,   13,   15,   17,   19,   20,   21,   22,   23,   25,
        37,   42,   43,   53,   69,   77,   79,   87,   95,   101,  102,  103,  104,  109,
        110,  111,  113,  115,  117,  119,  123,  135,  137,  139,  143,  161,  179,  389,
        427,  465,  512,  513,  514,  515,  526,  530,  531,  532,  540,  548,  554,  556,
        563,  587,  601,  636,  989,  990,  993,  995,  1719, 1720, 1723, 2049, 3659, 4045,
        4190, 5060, 5061, 6000, 6566, 6665, 6666, 6667, 6668, 6669, 6679, 6697, 10080};
    return std::ranges::binary_search(blocked, port);
}

}  // namespace glintmark::platform
