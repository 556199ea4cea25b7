#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace glintmark::test {

/// A DNS server on loopback (RFC 1035). While a server exists, this process asks it for all names
/// that end with ".dns.test". It answers queries for addresses from its table.
class NameServer {
public:
    NameServer();
    ~NameServer();
    NameServer(const NameServer&) = delete;
    NameServer& operator=(const NameServer&) = delete;

    /// Answers the next queries for `name` with `answers` in turn; the last answer stays. Each
    /// answer is a list of IP addresses, whose records live for 0 s. A name without answers does
    /// not exist.
    void answer(const std::string& name, std::vector<std::vector<std::string>> answers);

    void beSilent(const std::string& suffix);  ///< Never answers for names with this ending.

    int queries(const std::string& name) const;

private:
    void run();
    std::string reply(const std::string& query);

    int socket_ = -1;
    mutable std::mutex mutex_;
    std::map<std::string, std::vector<std::vector<std::string>>> answers_;  // guarded by the mutex
    std::map<std::string, int> queries_;                                    // guarded by the mutex
    std::string silent_ = "\n";                                             // guarded by the mutex
    std::thread thread_;
};

}  // namespace glintmark::test
