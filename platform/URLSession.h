#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/url/URL.h"

namespace glintmark::platform {

/// How widely an address can be reached: from the user's own machine, from the network around it,
/// or from the whole internet.
enum class AddressSpace { loopback, local, everyone };

/// What the requests of one link share: cookies, credentials and TLS tickets. They end with the
/// last reference. Only the session that made it can read it.
class URLTaskGroup {
public:
    virtual ~URLTaskGroup() = default;
};

/// A GET request. The session sends its defaults for header fields that are not set.
struct URLRequest {
    explicit URLRequest(URL target) : url(std::move(target)) {}

    void setValue(std::string value, std::string headerField) {
        headers.emplace_back(std::move(headerField), std::move(value));
    }

    URL url;
    std::chrono::nanoseconds timeoutInterval =
        std::chrono::seconds(60);                              ///< Maximum time without data.
    std::vector<std::pair<std::string, std::string>> headers;  ///< Name and value.

    /// Null for a request that shares nothing.
    std::shared_ptr<URLTaskGroup> group;

    /// The completion returns soon even with a large body, as one that only passes the body on.
    bool isQuickToComplete = false;

    /// For a URL that an answer named: that answer's `URLResult::addressSpace`. Such a request
    /// connects only to addresses that are at least as widely reachable, to no port of another
    /// protocol, and without the URL's user and password. Absent for a URL of the link's own.
    std::optional<AddressSpace> namedFrom;
};

struct URLResponse {
    /// The status of an HTTP response; absent for a response of another protocol.
    std::optional<int> statusCode;
};

/// The outcome of a request. There can be a body without a usable response, and the reverse.
struct URLResult {
    std::optional<std::string> body;  ///< Complete, decompressed; absent when the transfer failed.
    std::optional<URLResponse> response;
    std::optional<std::string> error;  ///< A description, when the transfer failed.
    AddressSpace addressSpace = AddressSpace::everyone;  ///< Of the address that answered last.
};

/// The program's one HTTP client. May be called from any thread.
class URLSession {
public:
    using Completion = std::function<void(URLResult)>;

    virtual ~URLSession() = default;

    /// A new group for the requests of one link to `host`. Answers that the protocol lets a client
    /// keep are shared with the groups of that host, and with no others. Never null.
    virtual std::shared_ptr<URLTaskGroup> makeTaskGroup(const std::string& host) = 0;

    /// Call when requests will follow soon, so that the first one need not wait for what can be
    /// made ready. Returns at once.
    virtual void prepare() = 0;

    /// Starts a request and returns at once. `completion` is called exactly once, on a background
    /// thread; completions of different requests may run at the same time. Follows redirects, each
    /// only to http or https.
    virtual void startDataTask(URLRequest request, Completion completion) = 0;
};

}  // namespace glintmark::platform
