#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "linux/network/BodyBudget.h"
#include "linux/network/ContentDecoder.h"
#include "linux/network/CurlHandles.h"
#include "linux/network/HTTPCache.h"
#include "linux/network/TransferClock.h"
#include "linux/network/TrustedAuthorities.h"
#include "platform/URLSession.h"

namespace glintmark::platform {

class CurlTaskGroup;
struct CurlURLSessionOptions;
struct Proxy;
struct ProxySettings;

/// One request and its redirects. Each hop is a separate transfer to libcurl, so that each hop
/// waits in the queue of its own host. Used on the session's thread once the first hop has begun.
class CurlTransfer {
public:
    using OpenSockets = std::unordered_set<curl_socket_t>;

    CurlTransfer(URLRequest request, URLSession::Completion completion,
                 const CurlURLSessionOptions& options);

    /// The host of the next hop in lower case; empty if the address cannot be requested.
    const std::string& host() const { return host_; }

    /// Prepares the next hop. Returns the name to look up for it; empty if there is none. `proxies`
    /// must live until the hop ends.
    const std::string& prepareHop(const ProxySettings& proxies);

    /// The IP addresses of that name, in the form of `NameLookUps`, and the time that it took from
    /// the hop's timeouts.
    void setAddresses(std::string addresses, TransferClock::Duration lookUpTime);

    /// When the hop times out if its name is looked up since `begin`.
    TransferClock::Time lookUpDeadline(TransferClock::Time begin) const {
        return clock_.deadlineFrom(begin);
    }

    /// Begins the prepared hop and returns its handle, which is valid until `endHop`. `budget` must
    /// live until then. `openSockets` must live as long as all connections.
    CURL* beginHop(BodyBudget<CurlTransfer>& budget, OpenSockets& openSockets,
                   TrustedAuthorities& authorities);

    /// True once the running hop has its connection: the first time that this is called then.
    bool takeConnected() { return std::exchange(hop_->hasNewConnection, false); }

    /// True if the running hop waits for a connection to the server of `other`.
    bool waitsForConnectionOf(const CurlTransfer& other) const;

    /// The running hop opens its own connection, unless it finds one. Its handle must not be added.
    void stopWaiting();

    /// True if the hop has failed because the server's certificate is not in one source of
    /// `authorities`, and there is another. Then the hop has ended and can begin again.
    bool canTrustOthers(CURLcode outcome, TrustedAuthorities& authorities);

    /// Ends the hop with libcurl's result, or CURLE_OPERATION_TIMEDOUT after its deadline. True if
    /// a redirect leads to another hop, which can then begin.
    bool endHop(CURLcode outcome);

    /// Fails a request that has not begun.
    void refuse(std::string error) { result_.error = std::move(error); }

    TransferClock::Time deadline() const;  ///< Of the running hop.

    bool isRedirected() const { return redirects_ > 0; }

    // Answers that are used again (CurlTransferCaching.cpp)

    /// The prepared hop's request, as `HTTPCache` tells it from others. Empty if it has no answer
    /// in common with others.
    const std::string& sharedRequest() const { return sharedRequest_; }

    bool isOfSameLinkAs(const CurlTransfer& other) const { return group_ == other.group_; }

    bool maySendCookies() const;  ///< With the prepared hop.

    /// True if the prepared hop may end with `answer`.
    bool mayUse(const HTTPCache::Answer& answer) const;

    /// Ends the prepared hop with that answer. True if a redirect leads to another hop.
    bool endHopWith(const HTTPCache::Answer& answer);

    /// Until when equal requests wait for the answer, as far as that can be told now.
    TransferClock::Time sharedUntil() const;

    /// Call after `endHop`. Keeps the hop's answer if others may use it.
    void keepAnswer(HTTPCache& cache);

    bool isQuickToComplete() const { return isQuickToComplete_; }
    const URLResult& result() const { return result_; }
    URLResult takeResult() { return std::move(result_); }
    URLSession::Completion takeCompletion() { return std::move(completion_); }

    std::size_t heldBytes() const { return body_.size() + coded_.size(); }
    void cancel();  ///< Drops the body and makes the deadline pass.

private:
    static std::size_t headerArrived(const char* bytes, std::size_t size, std::size_t count,
                                     void* self);
    static std::size_t bodyArrived(const char* bytes, std::size_t size, std::size_t count,
                                   void* self);
    static curl_socket_t openSocket(void* self, curlsocktype purpose, curl_sockaddr* address);
    static int closeSocket(void* openSockets, curl_socket_t socket);
    static int mayResolve(void* state, void* reserved, void* self);
    static int connected(void* self, char* address, char* localAddress, int port, int localPort);

    bool takeHeader(std::string_view line);
    void noteStatus();
    std::size_t declaredLength() const;  ///< Of the body before decompression; 0 if unknown.
    bool declaresTooMuch() const;
    bool takeBody(std::string_view bytes);
    bool append(std::string& to, std::string_view bytes) const;
    bool decode(std::string_view bytes);
    void useBodyAsItCame();
    std::string fieldValues(const char* name) const;

    void dropForeignCredentials();
    bool allows(std::optional<AddressSpace> space) const;
    bool allowsConnection(std::optional<AddressSpace> space) const;
    bool mayUse(std::optional<AddressSpace> connectedSpace);

    std::string describeRequest() const;
    void noteFreshness();
    bool isTooLargeToShare() const;
    void noteAnswerToKeep(CURLcode outcome, const std::optional<std::string>& location);

    CurlEasyHandle makeHandle(TrustedAuthorities& authorities);
    void setConnecting(CURL* handle);
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
    std::shared_ptr<CurlTaskGroup> group_;
    bool isQuickToComplete_;
    std::optional<AddressSpace> namedFrom_;  ///< The space of the answer that named `url_`.
    int redirects_ = 0;
    TransferClock clock_;
    URLResult result_;

    /// Where the next or running hop goes.
    struct Target {
        bool isEncrypted = false;
        const Proxy* proxy = nullptr;           ///< Null for none.
        std::optional<AddressSpace> nameSpace;  ///< Of the host's name, for a proxy.
        bool isBlocked = false;                 ///< What the address says is enough to refuse it.
        std::string lookUpName;
        std::uint16_t lookUpPort = 0;
        std::string addresses;
        TransferClock::Duration lookUpTime{0};
        std::optional<TrustedAuthorities::Source> trusted;  ///< By the last try.
        bool hasTriedOthers = false;
    };
    Target target_;
    std::string sharedRequest_;

    /// The state of the running hop.
    struct Hop {
        CurlEasyHandle handle;
        CurlListHandle headers;
        CurlListHandle addresses;
        BodyBudget<CurlTransfer>* budget = nullptr;
        OpenSockets* openSockets = nullptr;
        curl_socket_t socket = CURL_SOCKET_BAD;  ///< The last that was opened.
        bool mayWaitForConnection = false;       ///< That is being opened by another hop.
        bool hasNewConnection = false;
        bool refused = false;
        std::optional<AddressSpace> space;  ///< Of the connected address; absent: reserved.
        TransferClock::Time begunAt;
        bool maySendCookies = false;
        std::optional<std::chrono::seconds> freshFor;  ///< Absent if the answer is not kept.
        std::size_t headBytes = 0;
        std::size_t cookieBytes = 0;
        std::size_t redirectBodyBytes = 0;
        std::unique_ptr<ContentDecoder> decoder;  ///< Null if the body is not coded.
        std::optional<int> status;                ///< Set when the whole head has arrived.
        bool isRedirect = false;  ///< The status is a redirect's, with a Location field.
        bool cancelled = false;
        std::array<char, CURL_ERROR_SIZE> error{};
    };
    std::unique_ptr<Hop> hop_;
    std::optional<std::pair<HTTPCache::Answer, HTTPCache::Time>> kept_;  ///< Fresh until then.
    std::string body_;
    std::string coded_;  ///< The body as it came, while it is decoded into `body_`.
};

}  // namespace glintmark::platform
