#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/url/URL.h"

namespace glintmark::platform {

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
};

/// The program's one HTTP client. May be called from any thread.
class URLSession {
public:
    using Completion = std::function<void(URLResult)>;

    virtual ~URLSession() = default;

    /// Starts a request and returns at once. `completion` is called exactly once, on a background
    /// thread; completions of different requests may run at the same time. Follows redirects, each
    /// only to http or https.
    virtual void startDataTask(URLRequest request, Completion completion) = 0;
};

}  // namespace glintmark::platform
