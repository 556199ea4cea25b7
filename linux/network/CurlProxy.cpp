#include "linux/network/CurlProxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <initializer_list>
#include <vector>

#include "base/text/TextCase.h"

namespace glintmark::platform {

namespace {

/// The first of these variables that is set and not empty.
std::string firstOf(std::initializer_list<const char*> variables) {
    for (const char* variable : variables) {
        const char* value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): no setter
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return {};
}

/// Absent for an empty address.
std::optional<Proxy> proxyAt(const std::string& address) {
    return address.empty() ? std::nullopt : std::optional(Proxy{address, proxyParts(address)});
}

/// The bytes of an IP address, 4 or 16. Empty for other texts.
std::vector<unsigned char> addressBytes(const std::string& text) {
    in_addr four{};
    in6_addr sixteen{};
    if (::inet_pton(AF_INET, text.c_str(), &four) == 1) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(&four);
        return {bytes, bytes + sizeof(four)};
    }
    if (::inet_pton(AF_INET6, text.c_str(), &sixteen) == 1) {
        return {sixteen.s6_addr, sixteen.s6_addr + sizeof(sixteen)};
    }
    return {};
}

bool isInNetwork(const std::vector<unsigned char>& address, std::string_view network) {
    const std::size_t slash = network.find('/');
    const auto prefix = addressBytes(std::string(network.substr(0, slash)));
    std::size_t bits = prefix.size() * CHAR_BIT;
    if (slash != std::string_view::npos) {
        std::from_chars(network.data() + slash + 1, network.data() + network.size(), bits);
    }
    if (prefix.size() != address.size() || bits > prefix.size() * CHAR_BIT) {
        return false;
    }
    const std::size_t whole = bits / CHAR_BIT;
    const std::size_t rest = bits % CHAR_BIT;
    return std::equal(prefix.begin(), prefix.begin() + static_cast<std::ptrdiff_t>(whole),
                      address.begin()) &&
           (rest == 0 || (prefix[whole] ^ address[whole]) >> (CHAR_BIT - rest) == 0);
}

std::string_view withoutDots(std::string_view name) {
    if (name.ends_with('.')) {
        name.remove_suffix(1);
    }
    if (name.starts_with('.')) {
        name.remove_prefix(1);
    }
    return name;
}

bool isInDomain(std::string_view host, std::string_view domain) {
    return !domain.empty() && host.ends_with(domain) &&
           (host.size() == domain.size() || host[host.size() - domain.size() - 1] == '.');
}

}  // namespace

bool isExcepted(std::string_view exceptions, std::string_view host) {
    if (exceptions == "*" || exceptions.empty()) {
        return !exceptions.empty();
    }
    const bool isBracketed = host.starts_with('[');
    const auto address =
        addressBytes(std::string(isBracketed ? host.substr(1, host.find(']') - 1) : host));
    constexpr std::string_view separators = ", \t";
    while (true) {
        exceptions.remove_prefix(
            std::min(exceptions.find_first_not_of(separators), exceptions.size()));
        if (exceptions.empty()) {
            return false;
        }
        const auto item = exceptions.substr(0, exceptions.find_first_of(separators));
        exceptions.remove_prefix(item.size());
        if (address.empty()
                ? isInDomain(withoutDots(host), lowercasedASCII(std::string(withoutDots(item))))
                : isInNetwork(address, item)) {
            return true;
        }
    }
}

ProxySettings ProxySettings::fromEnvironment() {
    // A web server sets HTTP_PROXY from the client's field "Proxy", so only lower case counts.
    return {proxyAt(firstOf({"http_proxy", "all_proxy", "ALL_PROXY"})),
            proxyAt(firstOf({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})),
            firstOf({"no_proxy", "NO_PROXY"})};
}

const Proxy* ProxySettings::proxyFor(std::string_view scheme, std::string_view host) const {
    const std::optional<Proxy>& proxy = scheme == "http" ? http : https;
    return proxy && !isExcepted(exceptions, host) ? &*proxy : nullptr;
}

}  // namespace glintmark::platform
