#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "linux/network/BodyBudget.h"
#include "linux/network/CurlHandles.h"
#include "linux/network/TransferClock.h"
#include "platform/URLSession.h"

namespace glintmark::platform {

class CurlCookies;
struct CurlURLSessionOptions;

/// One request on its way through its redirects. Each hop is a transfer of its own to libcurl, so
/// that each waits for a place at the host it goes to. Lives on the session's thread once begun.
class CurlTransfer {
public:
    CurlTransfer(URLRequest request, URLSession::Completion completion,
                 const CurlURLSessionOptions& options);

    /// The host of the next hop in lower case; empty when the address cannot be asked for.
    const std::string& host() const { return host_; }

    /// Sets the next hop up and returns its handle, which stays valid until `endHop`.
    /// `cookies` and `budget` must live until then.
    CURL* beginHop(CurlCookies& cookies, BodyBudget<CurlTransfer>& budget);

    /// Ends the hop as libcurl reports it, or as timed out when it is overdue. True when it leads
    /// to another, which may begin.
    bool endHop(CURLcode outcome);

    /// Ends a request that has not begun.
    void refuse(std::string error) { result_.error = std::move(error); }

    TransferClock::Time deadline() const;

    URLResult takeResult() { return std::move(result_); }
    URLSession::Completion takeCompletion() { return std::move(completion_); }

    std::size_t heldBytes() const { return body_.size(); }
    void giveUp();  ///< Drops the body; the hop is then overdue.

private:
    static std::size_t headerArrived(const char* bytes, std::size_t size, std::size_t count,
                                     void* self);
    static std::size_t bodyArrived(const char* bytes, std::size_t size, std::size_t count,
                                   void* self);
    static int progressed(void* self, curl_off_t toReceive, curl_off_t received, curl_off_t toSend,
                          curl_off_t sent);

    bool takeHeader(std::string_view line);
    void noteStatus();
    std::size_t declaredLength() const;  ///< Of the packed body; 0 when unknown.
    bool declaresTooMuch() const;
    bool takeBody(std::string_view bytes);

    CurlEasyHandle makeHandle(CurlCookies& cookies);
    void setHeaders(CURL* handle);
    std::optional<std::string> location() const;
    bool follow(const std::string& location);
    std::optional<std::string> describe(CURLcode outcome) const;
    void failHop(std::string error);
    void leaveHop();

    const CurlURLSessionOptions& options_;
    URLSession::Completion completion_;
    std::string url_;
    std::string host_;
    std::vector<std::pair<std::string, std::string>> headers_;
    int redirects_ = 0;
    TransferClock clock_;
    URLResult result_;

    /// What only a running hop has.
    struct Hop {
        CurlEasyHandle handle;
        CurlListHandle headers;
        CurlCookies* cookies = nullptr;
        BodyBudget<CurlTransfer>* budget = nullptr;
        std::size_t headBytes = 0;
        std::size_t cookieBytes = 0;
        curl_off_t received = 0;
        std::size_t redirectBodyBytes = 0;
        std::optional<int> status;  ///< Once the head is whole.
        bool leadsOn = false;       ///< The head is that of a redirect.
        bool givenUp = false;
        std::array<char, CURL_ERROR_SIZE> error{};
    };
    std::unique_ptr<Hop> hop_;
    std::string body_;
};

}  // namespace glintmark::platform
