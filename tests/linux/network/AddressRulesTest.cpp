#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <vector>

#include "linux/network/AddressRules.h"

namespace glintmark::platform {

namespace {

std::optional<AddressSpace> spaceOf(const char* text) {
    sockaddr_in four{};
    four.sin_family = AF_INET;
    if (::inet_pton(AF_INET, text, &four.sin_addr) == 1) {
        return addressSpaceOf(reinterpret_cast<const sockaddr&>(four));
    }
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    EXPECT_EQ(::inet_pton(AF_INET6, text, &six.sin6_addr), 1) << text;
    return addressSpaceOf(reinterpret_cast<const sockaddr&>(six));
}

struct Case {
    std::optional<AddressSpace> space;
    std::vector<const char*> addresses;
};

TEST(AddressRulesTest, SortsTheFirstAndLastAddressOfEachRange) {
    const std::vector<Case> cases = {
        {AddressSpace::loopback,
         {"0.0.0.0", "0.255.255.255", "127.0.0.0", "127.255.255.255", "::", "::1",
          "::ffff:127.0.0.1", "64:ff9b::7f00:1", "2002:7fff:ffff:1::2", "::ffff:0:0"}},
        {AddressSpace::local,
         {"10.0.0.0",        "10.255.255.255",   "100.64.0.0",    "100.127.255.255",
          "169.254.0.0",     "169.254.255.255",  "172.16.0.0",    "172.31.255.255",
          "192.168.0.0",     "192.168.255.255",  "198.18.0.0",    "198.19.255.255",
          "fc00::",          "fdff:ffff::",      "fe80::",        "febf::",
          "fec0::",          "feff::",           "64:ff9b:1::",   "2001:2::1",
          "::ffff:10.1.2.3", "64:ff9b::a01:203", "2002:a01:203::"}},
        {AddressSpace::everyone,
         {"1.0.0.0",     "9.255.255.255",   "11.0.0.0",         "100.63.255.255",
          "100.128.0.0", "126.255.255.255", "128.0.0.0",        "169.253.255.255",
          "169.255.0.0", "172.15.255.255",  "172.32.0.0",       "192.167.255.255",
          "192.169.0.0", "198.17.255.255",  "198.20.0.0",       "223.255.255.255",
          "2000::",      "2001:db7::",      "2001:db9::",       "2a00::1",
          "3ffe::",      "::ffff:8.8.8.8",  "64:ff9b::808:808", "2002:808:808::"}},
        {std::nullopt, {"224.0.0.0",       "239.255.255.255",
                        "240.0.0.0",       "255.255.255.255",
                        "192.0.0.1",       "192.0.2.1",
                        "192.88.99.1",     "198.51.100.1",
                        "203.0.113.1",     "::2",
                        "::127.0.0.1",     "::ffff:0:127.0.0.1",
                        "ff00::",          "ff02::1",
                        "ffff::",          "100::1",
                        "2001:db8::1",     "3fff::1",
                        "4000::",          "1fff::",
                        "fbff::",          "fe00::",
                        "64:ff9b::e000:1", "2002:e000:1::"}}};
    for (const Case& expected : cases) {
        for (const char* address : expected.addresses) {
            EXPECT_EQ(spaceOf(address), expected.space) << address;
        }
    }
}

TEST(AddressRulesTest, AnotherFamilyIsNoAddress) {
    sockaddr_storage none{};
    EXPECT_EQ(addressSpaceOf(reinterpret_cast<const sockaddr&>(none)), std::nullopt);
    none.ss_family = AF_UNIX;
    EXPECT_EQ(addressSpaceOf(reinterpret_cast<const sockaddr&>(none)), std::nullopt);
}

TEST(AddressRulesTest, SortsNamesForAProxy) {
    const std::vector<Case> cases = {
        {AddressSpace::loopback,
         {"localhost", "localhost.", "a.localhost", "127.0.0.1", "127.1", "0x7f000001", "[::1]",
          "[::ffff:127.0.0.1]"}},
        {AddressSpace::local,
         {"intranet", "local", "printer.local", "a.b.local.", "10.1", "[fe80::1%25eth0]",
          "xlocalhost"}},
        {AddressSpace::everyone,
         {"site.example", "site.example.", "nolocal.example", "8.8.8.8", "[2a00::1]",
          "localhost.example", "mylocal.host"}},
        {std::nullopt, {"224.0.0.1", "[ff02::1]", "[zz]", "["}}};
    for (const Case& expected : cases) {
        for (const char* name : expected.addresses) {
            EXPECT_EQ(addressSpaceOfName(name), expected.space) << name;
        }
    }
}

TEST(AddressRulesTest, BlocksThePortsOfOtherProtocols) {
    for (const int port : {0, 1, 22, 25, 110, 389, 6000, 6697, 10080}) {
        EXPECT_TRUE(isBlockedPort(static_cast<std::uint16_t>(port))) << port;
    }
    for (const int port : {2, 80, 81, 443, 3000, 5000, 8000, 8080, 8443, 65535}) {
        EXPECT_FALSE(isBlockedPort(static_cast<std::uint16_t>(port))) << port;
    }
}

}  // namespace

}  // namespace glintmark::platform
