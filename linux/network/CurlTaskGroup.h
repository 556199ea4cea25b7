#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "base/text/TextCase.h"
#include "linux/network/CurlHandles.h"
#include "linux/network/CurlRedirect.h"
#include "platform/URLSession.h"

namespace glintmark::platform {

/// What the requests of one link share, kept in memory only: cookies, TLS tickets and the
/// credentials of the link's own address. For one thread at a time.
class CurlTaskGroup final : public URLTaskGroup {
public:
    /// `host`: the link's. Empty for the group of a single request.
    explicit CurlTaskGroup(std::string host = "") : host_(lowercasedASCII(std::move(host))) {}

    const std::string& host() const { return host_; }

    /// Makes the transfer of `handle` use the cookies and tickets.
    void attach(CURL* handle);

    /// Call when the transfer of `handle` has received Set-Cookie fields of `bytes` bytes from
    /// `host`. libcurl does not limit the number of cookies, so too many bytes clear them all.
    void receivedCookies(CURL* handle, const std::string& host, std::size_t bytes);

    /// False if no request to `host` (in lower case) has cookies.
    bool mayHaveCookiesFor(const std::string& host) const;

    /// Remembers the credentials in an address of the link itself.
    void keepCredentials(const std::string& url);

    /// `url`, which an answer named. It keeps a user and password only if they are the link's own
    /// at the link's own origin, as in an address that was resolved against the link.
    std::string withoutForeignCredentials(const std::string& url) const;

private:
    const std::string host_;
    CurlShareHandle share_;  ///< Made with the first transfer, because libcurl is loaded late.
    std::size_t cookieBytes_ = 0;
    std::set<std::string> cookieSites_;  ///< The last two labels of hosts that set cookies.
    std::optional<AddressCredentials> own_;
};

}  // namespace glintmark::platform
