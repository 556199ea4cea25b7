#include "tests/support/NameServer.h"

#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "tests/support/HostNames.h"

namespace glintmark::test {

namespace {

constexpr std::size_t headerBytes = 12;

/// The name in the question section.
std::string questionName(const std::string& query) {
    std::string name;
    for (std::size_t at = headerBytes; at < query.size() && query[at] != 0;) {
        const auto length = static_cast<unsigned char>(query[at]);
        name += (name.empty() ? "" : ".") + query.substr(at + 1, length);
        at += 1U + length;
    }
    return name;
}

void append16(std::string& bytes, unsigned value) {
    bytes += static_cast<char>(value >> 8);
    bytes += static_cast<char>(value);
}

}  // namespace

NameServer::NameServer() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(socket_, generic, length) != 0 || ::getsockname(socket_, generic, &length) != 0) {
        throw std::runtime_error("no socket for a name server");
    }
    HostNames::askServerAt(ntohs(address.sin_port));
    thread_ = std::thread([this] { run(); });
}

NameServer::~NameServer() {
    HostNames::askServerAt(0);
    ::shutdown(socket_, SHUT_RDWR);
    thread_.join();
    ::close(socket_);
}

void NameServer::answer(const std::string& name, std::vector<std::vector<std::string>> answers) {
    const std::lock_guard lock(mutex_);
    answers_[name] = std::move(answers);
}

void NameServer::beSilent(const std::string& suffix) {
    const std::lock_guard lock(mutex_);
    silent_ = suffix;
}

int NameServer::queries(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    const auto found = queries_.find(name);
    return found == queries_.end() ? 0 : found->second;
}

void NameServer::run() {
    std::array<char, 1500> buffer{};
    while (true) {
        sockaddr_storage client{};
        socklen_t length = sizeof(client);
        auto* generic = reinterpret_cast<sockaddr*>(&client);
        const auto size = ::recvfrom(socket_, buffer.data(), buffer.size(), 0, generic, &length);
        if (size <= static_cast<ssize_t>(headerBytes)) {
            return;  // shut down
        }
        const std::string answer = reply({buffer.data(), static_cast<std::size_t>(size)});
        if (!answer.empty()) {
            ::sendto(socket_, answer.data(), answer.size(), 0, generic, length);
        }
    }
}

std::string NameServer::reply(const std::string& query) {
    const std::string name = questionName(query);
    const std::size_t questionEnd = headerBytes + name.size() + 2 + 4;
    const bool isIPv4 = query.at(questionEnd - 3) == ns_t_a;
    const int family = isIPv4 ? AF_INET : AF_INET6;
    const std::lock_guard lock(mutex_);
    if (name.ends_with(silent_)) {
        return {};
    }
    std::vector<std::string> addresses;
    const auto found = answers_.find(name);
    if (found != answers_.end()) {
        addresses = found->second.front();
        std::erase_if(addresses, [&](const std::string& address) {
            return (address.find(':') == std::string::npos) != isIPv4;
        });
    }
    if (isIPv4 && found != answers_.end()) {  // the resolver also asks for IPv6
        ++queries_[name];
        if (found->second.size() > 1) {
            found->second.erase(found->second.begin());
        }
    }
    std::string bytes = query.substr(0, 2);
    append16(bytes, found != answers_.end() ? 0x8180 : 0x8183);  // NOERROR, NXDOMAIN
    append16(bytes, 1);
    append16(bytes, static_cast<unsigned>(addresses.size()));
    append16(bytes, 0);
    append16(bytes, 0);
    bytes += query.substr(headerBytes, questionEnd - headerBytes);
    for (const std::string& text : addresses) {
        in6_addr address{};  // or the shorter one in its first bytes
        ::inet_pton(family, text.c_str(), &address);
        const std::size_t length = isIPv4 ? sizeof(in_addr) : sizeof(in6_addr);
        append16(bytes, 0xC00C);  // the question's name
        append16(bytes, isIPv4 ? ns_t_a : ns_t_aaaa);
        append16(bytes, ns_c_in);
        bytes.append(4, '\0');  // 0 s
        append16(bytes, static_cast<unsigned>(length));
        bytes.append(reinterpret_cast<const char*>(&address), length);
    }
    return bytes;
}

}  // namespace glintmark::test
