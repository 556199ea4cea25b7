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

/// A GET request. Header fields that are not set are the session's defaults.
struct URLRequest {
    explicit URLRequest(URL target) : url(std::move(target)) {}

    void setValue(std::string value, std::string headerField) {
        headers.emplace_back(std::move(headerField), std::move(value));
    }

    URL url;
    std::chrono::nanoseconds timeoutInterval =
        std::chrono::seconds(60);                              ///< Longest wait without data.
    std::vector<std::pair<std::string, std::string>> headers;  ///< Name and value.
};

struct URLResponse {
    /// The status of an HTTP response; absent for a response of another protocol.
    std::optional<int> statusCode;
};

/// What came of a request. A body can be there without any usable response and the reverse.
struct URLResult {
    std::optional<std::string> body;  ///< Whole, decompressed; absent when the transfer failed.
    std::optional<URLResponse> response;
    std::optional<std::string> error;  ///< A description, when the transfer failed.
};

/// The program's one HTTP client. May be called from any thread.
class URLSession {
public:
    using Completion = std::function<void(URLResult)>;

    virtual ~URLSession() = default;

    /// Starts a request and returns at once. `completion` is called exactly once, on a background
    /// thread, several at a time for different requests. Redirects are followed; only http and
    /// https are spoken, on every hop.
    virtual void startDataTask(URLRequest request, Completion completion) = 0;
};

}  // namespace glintmark::platform
