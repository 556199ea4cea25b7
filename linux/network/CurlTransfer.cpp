#include "linux/network/CurlTransfer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "base/text/TextCase.h"
#include "linux/network/AddressRules.h"
#include "linux/network/CurlOptions.h"
#include "linux/network/CurlProxy.h"
#include "linux/network/CurlRedirect.h"
#include "linux/network/CurlTaskGroup.h"
#include "linux/network/CurlURLSession.h"
#include "platform/Log.h"

namespace glintmark::platform {

namespace {

constexpr int maximumRedirects = 20;

/// The host of `url` in lower case; empty if the session does not request `url`. libcurl is more
/// lenient: it reads "http:/a" as "http://a".
std::string requestableHost(const URL& url) {
    const std::string scheme = lowercasedASCII(url.scheme().value_or(""));
    return scheme == "http" || scheme == "https" ? lowercasedASCII(url.host().value_or("")) : "";
}

/// Appends a copy of `text`.
void appendCopy(CurlListHandle& list, const std::string& text) {
    curl_slist* longer = curl_slist_append(list.get(), text.c_str());
    static_cast<void>(list.release());
    list.reset(longer);
}

/// True for names. libcurl knows what "localhost" is (RFC 6761, section 6.3).
bool needsLookUp(const std::string& host) {
    in_addr ignored{};
    return !host.starts_with('[') && ::inet_pton(AF_INET, host.c_str(), &ignored) != 1 &&
           host != "localhost" && !host.ends_with(".localhost");
}

/// The socket address of an IP address in the usual spelling, as libcurl reports it.
sockaddr_storage socketAddress(const char* text) {
    sockaddr_storage address{};
    sockaddr_in four{};
    sockaddr_in6 six{};
    if (::inet_pton(AF_INET, text, &four.sin_addr) == 1) {
        four.sin_family = AF_INET;
        std::memcpy(&address, &four, sizeof(four));
    } else if (::inet_pton(AF_INET6, text, &six.sin6_addr) == 1) {
        six.sin6_family = AF_INET6;
        std::memcpy(&address, &six, sizeof(six));
    }
    return address;
}

}  // namespace

CurlTransfer::CurlTransfer(URLRequest request, URLSession::Completion completion,
                           const CurlURLSessionOptions& options)
    : options_(options),
      completion_(std::move(completion)),
      url_(request.url.absoluteString()),
      host_(requestableHost(request.url)),
      headers_(std::move(request.headers)),
      group_(request.group ? std::static_pointer_cast<CurlTaskGroup>(std::move(request.group))
                           : std::make_shared<CurlTaskGroup>()),
      isQuickToComplete_(request.isQuickToComplete),
      namedFrom_(request.namedFrom),
      clock_(request.timeoutInterval, options.transferTimeout) {
    if (host_.empty()) {
        refuse("Only http and https addresses with a host are asked for.");
    }
}

const std::string& CurlTransfer::prepareHop(const ProxySettings& proxies) {
    if (redirects_ == 0) {  // otherwise `redirectTarget` has dropped them
        dropForeignCredentials();
    }
    sharedRequest_ = describeRequest();
    target_ = {};
    const auto parts = addressParts(url_);
    if (!parts) {  // libcurl will refuse the request; if it does not, the transfer will
        target_.isBlocked = true;
        return target_.lookUpName;
    }
    target_.isEncrypted = parts->scheme == "https";
    target_.proxy = proxies.proxyFor(parts->scheme, parts->host);
    target_.nameSpace = addressSpaceOfName(parts->host);
    target_.isBlocked = namedFrom_ && (isBlockedPort(parts->port) ||
                                       (target_.proxy != nullptr && !allows(target_.nameSpace)));
    const auto& connects = target_.proxy == nullptr ? parts : target_.proxy->parts;
    if (connects && needsLookUp(connects->host)) {
        target_.lookUpName = connects->host;
        target_.lookUpPort = connects->port;
    }
    return target_.lookUpName;
}

void CurlTransfer::dropForeignCredentials() {
    if (namedFrom_) {
        url_ = group_->withoutForeignCredentials(url_);
    } else {
        group_->keepCredentials(url_);
    }
}

void CurlTransfer::setAddresses(std::string addresses, TransferClock::Duration lookUpTime) {
    target_.addresses = std::move(addresses);
    target_.lookUpTime = lookUpTime;
}

CURL* CurlTransfer::beginHop(BodyBudget<CurlTransfer>& budget, OpenSockets& openSockets,
                             TrustedAuthorities& authorities) {
    hop_ = std::make_unique<Hop>();
    hop_->begunAt = options_.now();
    hop_->openSockets = &openSockets;
    hop_->budget = &budget;
    hop_->handle = makeHandle(authorities);
    budget.join(*this);
    clock_.start(options_.now() - target_.lookUpTime);
    return hop_->handle.get();
}

/// True if the answer that named the address may name one in `space`.
bool CurlTransfer::allows(std::optional<AddressSpace> space) const {
    return !namedFrom_ || (space && *space >= *namedFrom_);
}

/// True if the hop may get its answer from an address in `space`.
bool CurlTransfer::allowsConnection(std::optional<AddressSpace> space) const {
    return !target_.isBlocked && (target_.proxy != nullptr || allows(space));
}

/// True if the hop may use a connection to an address in `connectedSpace`. Every refusal comes from
/// here, also that of a blocked address, so that all take as long as a refused connection.
bool CurlTransfer::mayUse(std::optional<AddressSpace> connectedSpace) {
    const bool may = allowsConnection(connectedSpace);
    hop_->refused = hop_->refused || !may;
    return may;
}

CurlEasyHandle CurlTransfer::makeHandle(TrustedAuthorities& authorities) {
    CurlEasyHandle owner(curl_easy_init());
    CURL* handle = owner.get();
    setCurlOption<CURLOPT_ERRORBUFFER>(handle, hop_->error.data());

    setCurlOption<CURLOPT_URL>(handle, url_.c_str());
    setCurlOption<CURLOPT_PATH_AS_IS>(handle, 1L);
    setCurlOption<CURLOPT_PROTOCOLS_STR>(handle, "http,https");
    setCurlOption<CURLOPT_ACCEPT_ENCODING>(handle, acceptedCodings);
    setCurlOption<CURLOPT_HTTP_CONTENT_DECODING>(handle, 0L);
    setHeaders(handle);
    if (target_.isEncrypted) {
        setCurlOption<CURLOPT_SSLVERSION>(handle, long{CURL_SSLVERSION_TLSv1_2});  // at least
        setCurlOption<CURLOPT_SUPPRESS_CONNECT_HEADERS>(handle, 1L);
        target_.trusted = authorities.trust(handle, target_.trusted);
        // A request waits until a connection to its host that is being opened knows whether it can
        // carry several. An unencrypted one never can.
        setCurlOption<CURLOPT_PIPEWAIT>(handle, 1L);
        hop_->mayWaitForConnection = true;
    }
    group_->attach(handle);
    setConnecting(handle);

    setCurlOption<CURLOPT_HEADERFUNCTION>(handle, headerArrived);
    setCurlOption<CURLOPT_HEADERDATA>(handle, this);
    setCurlOption<CURLOPT_WRITEFUNCTION>(handle, bodyArrived);
    setCurlOption<CURLOPT_WRITEDATA>(handle, this);
    setCurlOption<CURLOPT_NOSIGNAL>(handle, 1L);
    return owner;
}

void CurlTransfer::setConnecting(CURL* handle) {
    // Both texts are set, so that libcurl does not look into the environment once more.
    setCurlOption<CURLOPT_PROXY>(handle,
                                 target_.proxy != nullptr ? target_.proxy->address.c_str() : "");
    setCurlOption<CURLOPT_NOPROXY>(handle, "");
    if (!target_.lookUpName.empty()) {
        appendCopy(hop_->addresses, "+" + target_.lookUpName + ":" +
                                        std::to_string(target_.lookUpPort) + ":" +
                                        target_.addresses);
        setCurlOption<CURLOPT_RESOLVE>(handle, hop_->addresses.get());
        setCurlOption<CURLOPT_RESOLVER_START_FUNCTION>(handle, mayResolve);
        setCurlOption<CURLOPT_RESOLVER_START_DATA>(handle, this);
    }
    // The first is called before each connection to an address, the second before each request,
    // also over a connection that was open before.
    setCurlOption<CURLOPT_OPENSOCKETFUNCTION>(handle, openSocket);
    setCurlOption<CURLOPT_OPENSOCKETDATA>(handle, this);
    setCurlOption<CURLOPT_CLOSESOCKETFUNCTION>(handle, closeSocket);
    setCurlOption<CURLOPT_CLOSESOCKETDATA>(handle, hop_->openSockets);
    setCurlOption<CURLOPT_PREREQFUNCTION>(handle, connected);
    setCurlOption<CURLOPT_PREREQDATA>(handle, this);
}

void CurlTransfer::setHeaders(CURL* handle) {
    const bool namesItself = std::ranges::any_of(
        headers_, [](const auto& field) { return lowercasedASCII(field.first) == "user-agent"; });
    if (!namesItself) {
        setCurlOption<CURLOPT_USERAGENT>(handle, ("Glintmark/" + options_.version).c_str());
    }
    for (const auto& [name, value] : headers_) {
        std::string line = name;
        // libcurl sends a field without a value if ";" follows the name.
        line.append(value.empty() ? ";" : ": ").append(value);
        appendCopy(hop_->headers, line);
    }
    setCurlOption<CURLOPT_HTTPHEADER>(handle, hop_->headers.get());
}

bool CurlTransfer::waitsForConnectionOf(const CurlTransfer& other) const {
    return hop_->mayWaitForConnection && other.target_.isEncrypted && other.host_ == host_;
}

void CurlTransfer::stopWaiting() {
    setCurlOption<CURLOPT_PIPEWAIT>(hop_->handle.get(), 0L);
    hop_->mayWaitForConnection = false;
}

bool CurlTransfer::canTrustOthers(CURLcode outcome, TrustedAuthorities& authorities) {
    if (outcome != CURLE_PEER_FAILED_VERIFICATION || !target_.trusted || target_.hasTriedOthers) {
        return false;
    }
    authorities.refused(*target_.trusted);
    target_.hasTriedOthers = true;
    target_.lookUpTime = {};  // has been counted
    leaveHop();
    return true;
}

bool CurlTransfer::endHop(CURLcode outcome) {
    // What a reserved address answers may name public addresses alone.
    result_.addressSpace = hop_->space.value_or(AddressSpace::everyone);
    if (hop_->isRedirect) {  // even if its body failed
        const std::string where = location().value_or("");
        noteAnswerToKeep(outcome, where);
        namedFrom_ = result_.addressSpace;
        leaveHop();
        return follow(where);
    }
    if (hop_->status) {
        result_.response = URLResponse{hop_->status};
    }
    auto error = describe(outcome);
    if (hop_->decoder && body_.empty() && !hop_->cancelled) {  // not even a beginning was decoded
        useBodyAsItCame();
    }
    noteAnswerToKeep(outcome, std::nullopt);
    leaveHop();
    if (error) {
        failHop(std::move(*error));
    } else {
        result_.body = std::move(body_);
    }
    return false;
}

std::optional<std::string> CurlTransfer::describe(CURLcode outcome) const {
    if (hop_->cancelled) {
        return "Too much data arrived at once.";
    }
    if (hop_->refused && !hop_->status && outcome != CURLE_OPERATION_TIMEDOUT) {
        if (options_.log != nullptr) {
            const auto credentials = addressCredentials(url_);
            options_.log->debug("http: refused what an answer named: " +
                                (credentials ? credentials->withoutThem : url_));
        }
        return "The answer that named the address may not name it.";
    }
    if (outcome == CURLE_OPERATION_TIMEDOUT) {
        return "The request timed out.";
    }
    if (outcome != CURLE_OK) {
        return hop_->error[0] != '\0' ? hop_->error.data() : curl_easy_strerror(outcome);
    }
    if (!hop_->status) {
        return "The connection ended before the answer.";
    }
    return std::nullopt;
}

void CurlTransfer::leaveHop() {
    clock_.stop(options_.now());
    hop_->budget->leave(*this);
    coded_ = {};
    group_->receivedCookies(hop_->handle.get(), host_, hop_->cookieBytes);
    hop_.reset();
}

bool CurlTransfer::follow(const std::string& location) {
    if (++redirects_ > maximumRedirects) {
        failHop("Too many redirects.");
        return false;
    }
    auto target = redirectTarget(url_, location);
    if (!target) {
        failHop("A redirect leads to an address that cannot be asked for.");
        return false;
    }
    url_ = std::move(target->url);
    host_ = std::move(target->host);
    if (!target->sameOrigin) {
        std::erase_if(headers_, [](const auto& field) {
            const std::string name = lowercasedASCII(field.first);
            return name == "authorization" || name == "cookie";
        });
    }
    return true;
}

void CurlTransfer::failHop(std::string error) {
    result_.error = std::move(error);
    body_ = {};
}

TransferClock::Time CurlTransfer::deadline() const {
    return hop_->cancelled ? TransferClock::Time::min() : clock_.deadline();
}

void CurlTransfer::cancel() {
    hop_->cancelled = true;
    body_ = {};
    coded_ = {};
}

curl_socket_t CurlTransfer::openSocket(void* self, curlsocktype /*purpose*/,
                                       curl_sockaddr* address) {
    auto* transfer = static_cast<CurlTransfer*>(self);
    Hop& hop = *transfer->hop_;
    hop.mayWaitForConnection = false;
    if (!transfer->mayUse(transfer->options_.addressSpaceOf(address->addr))) {
        return CURL_SOCKET_BAD;
    }
    // libcurl tries a second address while the first one is silent. Then a transfer has two
    // sockets.
    if (hop.openSockets->contains(hop.socket) &&
        hop.openSockets->size() >= transfer->options_.maximumSocketsForSeconds) {
        return CURL_SOCKET_BAD;
    }
    hop.socket = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (hop.socket >= 0) {
        hop.openSockets->insert(hop.socket);
    }
    return hop.socket;
}

int CurlTransfer::closeSocket(void* openSockets, curl_socket_t socket) {
    static_cast<OpenSockets*>(openSockets)->erase(socket);
    return ::close(socket);
}

/// libcurl's own look-ups would hold a thread each, so there are none: the addresses are known.
/// Only for an old kind of proxy libcurl has to look up the site's name, too.
int CurlTransfer::mayResolve(void* /*state*/, void* /*reserved*/, void* self) {
    constexpr int forbid = 1;
    const Proxy* const proxy = static_cast<CurlTransfer*>(self)->target_.proxy;
    return proxy != nullptr && proxy->address.starts_with("socks") ? 0 : forbid;
}

int CurlTransfer::connected(void* self, char* address, char* /*localAddress*/, int /*port*/,
                            int /*localPort*/) {
    auto* transfer = static_cast<CurlTransfer*>(self);
    Hop& hop = *transfer->hop_;
    const sockaddr_storage connected = socketAddress(address);
    const auto space =
        transfer->target_.proxy == nullptr
            ? transfer->options_.addressSpaceOf(reinterpret_cast<const sockaddr&>(connected))
            : transfer->target_.nameSpace;
    hop.mayWaitForConnection = false;
    hop.hasNewConnection = true;
    hop.space = space;
    hop.maySendCookies = transfer->maySendCookies();  // libcurl adds them after this call
    return transfer->mayUse(space) ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
}

}  // namespace glintmark::platform
