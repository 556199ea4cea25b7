#include "linux/network/AddressRules.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>
#include <sstream>
#include <string>

#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using platform::AddressSpace;
using platform::addressSpaceOf;
using platform::addressSpaceOfName;

namespace {

using Bytes = std::array<std::uint8_t, 16>;

std::optional<AddressSpace> spaceOf(const std::uint8_t* four) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    std::memcpy(&address.sin_addr, four, sizeof(address.sin_addr));
    return addressSpaceOf(reinterpret_cast<const sockaddr&>(address));
}

std::optional<AddressSpace> spaceOf(const Bytes& sixteen) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    std::memcpy(&address.sin6_addr, sixteen.data(), sixteen.size());
    return addressSpaceOf(reinterpret_cast<const sockaddr&>(address));
}

/// `prefix` with the IPv4 address behind it.
Bytes wrapped(std::initializer_list<std::uint8_t> prefix, const std::uint8_t* four) {
    Bytes bytes{};
    std::copy(prefix.begin(), prefix.end(), bytes.begin());
    std::memcpy(bytes.data() + prefix.size(), four, 4);
    return bytes;
}

std::string octal(unsigned value) {
    std::ostringstream text;
    text << '0' << std::oct << value;
    return text.str();
}

std::string hexadecimal(unsigned value) {
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
}

}  // namespace

/// Rules: an IPv4 address has one space, in every wrapping and spelling; an IPv6 address has the
/// same as its text; multicast has none; the private ranges are never public. Any text is a name.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    addressSpaceOfName(fuzz::text(data, size));
    if (size < sizeof(Bytes)) {
        return 0;
    }
    const auto four = spaceOf(data);
    fuzz::require(spaceOf(wrapped({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF}, data)) == four);
    fuzz::require(spaceOf(wrapped({0, 0x64, 0xFF, 0x9B, 0, 0, 0, 0, 0, 0, 0, 0}, data)) == four);
    fuzz::require(spaceOf(wrapped({0x20, 0x02}, data)) == four);
    const unsigned whole =
        unsigned{data[0]} << 24 | unsigned{data[1]} << 16 | unsigned{data[2]} << 8 | data[3];
    for (const std::string& spelling :
         {std::to_string(whole), hexadecimal(whole), octal(whole),
          std::to_string(whole >> 24) + "." + hexadecimal(whole & 0xFFFFFF),
          octal(whole >> 24) + "." + std::to_string(whole >> 16 & 0xFF) + "." +
              std::to_string(whole & 0xFFFF) + "."}) {
        fuzz::require(addressSpaceOfName(spelling) == four);
    }
    fuzz::require((data[0] != 127 && data[0] != 0) || four == AddressSpace::loopback);
    const bool isPrivate = data[0] == 10 || (data[0] == 192 && data[1] == 168) ||
                           (data[0] == 172 && data[1] >> 4 == 1) ||
                           (data[0] == 169 && data[1] == 254) ||
                           (data[0] == 100 && data[1] >> 6 == 1);
    fuzz::require(!isPrivate || four == AddressSpace::local);
    fuzz::require(data[0] < 224 || !four);

    Bytes sixteen{};
    std::memcpy(sixteen.data(), data, sixteen.size());
    std::array<char, INET6_ADDRSTRLEN> literal{};
    ::inet_ntop(AF_INET6, sixteen.data(), literal.data(), literal.size());
    const auto six = spaceOf(sixteen);
    fuzz::require(addressSpaceOfName("[" + std::string(literal.data()) + "]") == six);
    fuzz::require(addressSpaceOfName("[" + std::string(literal.data()) + "%25eth0]") == six);
    fuzz::require(sixteen[0] != 0xFF || !six);
    fuzz::require((sixteen[0] & 0xFE) != 0xFC || six == AddressSpace::local);
    fuzz::require(sixteen[0] != 0xFE || (sixteen[1] & 0x80) == 0 || six == AddressSpace::local);
    fuzz::require(six != AddressSpace::everyone || sixteen[0] >> 5 == 1 || sixteen[0] == 0);
    return 0;
}
