#include "linux/network/CurlLoop.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <utility>

#include "linux/network/CurlOptions.h"
#include "linux/network/CurlURLSession.h"

namespace glintmark::platform {

namespace {

constexpr std::chrono::milliseconds maximumWait = std::chrono::minutes(1);
constexpr std::chrono::milliseconds waitWithoutWake{100};  // if the system has no descriptor left
constexpr const char* unknownName = "The host's name has no address.";
constexpr std::size_t reservedShare = 5;  // one fifth
constexpr long connectionsPerTransfer = 4;

/// Answers from the cache are copied until they have so many bytes. Then the session looks at how
/// much has been delivered.
constexpr std::size_t maximumCopiedBytes = std::size_t{1} << 20;

bool isNotReady(const pollfd& socket) { return socket.revents == 0; }

}  // namespace

CurlLoop::CurlLoop(const CurlURLSessionOptions& options, NameLookUps& names)
    : options_(options),
      names_(names),
      authorities_(options),
      shared_(options.now),
      budget_(options.maximumArrivingBytes),
      queue_(options.maximumTransfersPerHost, options.maximumTransfers,
             options.maximumTransfers / reservedShare),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      multi_(curl_multi_init()) {
    setCurlOption<CURLMOPT_SOCKETFUNCTION>(multi_.get(), watchSocket);
    setCurlOption<CURLMOPT_SOCKETDATA>(multi_.get(), this);
    // Idle connections that are kept open count too. libcurl closes the oldest of them to make
    // room.
    setCurlOption<CURLMOPT_MAX_TOTAL_CONNECTIONS>(multi_.get(),
                                                  static_cast<long>(options.maximumTransfers));
    names_.setWake([this] { wake(); });
}

CurlLoop::~CurlLoop() {
    names_.setWake(nullptr);
    names_.forget();
    for (Running& running : running_) {
        curl_multi_remove_handle(multi_.get(), running.handle);
        running.transfer->endHop(CURLE_ABORTED_BY_CALLBACK);
    }
}

void CurlLoop::add(std::unique_ptr<CurlTransfer> transfer) { lineUp(std::move(transfer)); }

void CurlLoop::lineUp(std::unique_ptr<CurlTransfer> transfer, bool mayWait) {
    const std::string& name = transfer->prepareHop(proxies_);
    if (shared_.take(transfer, mayWait)) {
        return;
    }
    LookingUp waiting{nullptr, transfer->isRedirected(), options_.now()};
    const auto addresses = name.empty() ? std::optional<std::string>("") : names_.ask(name);
    if (!addresses) {
        auto& others = lookingUp_[name];
        waiting.transfer = std::move(transfer);
        others.push_back(std::move(waiting));
    } else if (!name.empty() && addresses->empty()) {
        transfer->refuse(unknownName);
        ended_.push_back(std::move(transfer));
    } else {
        waiting.transfer = std::move(transfer);
        enqueue(std::move(waiting), *addresses);
    }
}

void CurlLoop::enqueue(LookingUp waiting, const std::string& addresses) {
    waiting.transfer->setAddresses(addresses, options_.now() - waiting.since);
    const std::string host = waiting.transfer->host();
    if (waiting.isNextHop) {
        queue_.pushFront(host, std::move(waiting.transfer));
    } else {
        queue_.push(host, std::move(waiting.transfer));
    }
}

void CurlLoop::takeLookedUp() {
    for (const auto& [name, addresses] : names_.takeEnded()) {
        const auto found = lookingUp_.find(name);
        if (found == lookingUp_.end()) {
            continue;
        }
        const TransferClock::Time begin = names_.begunAt(name).value_or(options_.now());
        for (LookingUp& waiting : found->second) {
            if (addresses.empty()) {
                waiting.transfer->refuse(unknownName);
                ended_.push_back(std::move(waiting.transfer));
            } else {
                waiting.since = std::max(waiting.since, begin);  // waiting for a thread is free
                enqueue(std::move(waiting), addresses);
            }
        }
        lookingUp_.erase(found);
    }
}

/// The timeout does not run while the name waits for a thread.
TransferClock::Time CurlLoop::lookUpDeadline(const std::string& name,
                                             const LookingUp& waiting) const {
    const auto begin = names_.begunAt(name);
    return begin ? waiting.transfer->lookUpDeadline(std::max(waiting.since, *begin))
                 : TransferClock::Time::max();
}

void CurlLoop::endTimedOutLookUps(Transfers& ended) {
    const auto now = options_.now();
    for (const std::string& name : names_.begun()) {
        const auto entry = lookingUp_.find(name);
        if (entry == lookingUp_.end()) {
            continue;
        }
        std::vector<LookingUp>& transfers = entry->second;
        const auto late = std::stable_partition(
            transfers.begin(), transfers.end(),
            [&](const LookingUp& waiting) { return lookUpDeadline(name, waiting) > now; });
        for (auto each = late; each != transfers.end(); ++each) {
            each->transfer->refuse("The request timed out.");
            ended.push_back(std::move(each->transfer));
        }
        transfers.erase(late, transfers.end());
        if (transfers.empty()) {
            lookingUp_.erase(entry);
        }
    }
}

CurlLoop::Transfers CurlLoop::runOnce(bool mayStart) {
    takeLookedUp();
    if (mayStart) {
        useSharedAnswers();
        startTransfers();
    }
    // libcurl's default, but stated: libcurl 8.14 leaves out the transfers that have ended already,
    // so transfers that end together would close connections that the next ones of their host can
    // use.
    setCurlOption<CURLMOPT_MAXCONNECTS>(
        multi_.get(), connectionsPerTransfer * static_cast<long>(running_.size()));
    // What has arrived in time counts, even if this thread was busy with something else.
    if (firstDeadline() <= options_.now()) {
        lookAtSockets();
    }
    perform();
    releaseWaiting();
    Transfers ended = std::exchange(ended_, {});
    collectFinished(ended);
    endTimedOut(ended);
    endTimedOutLookUps(ended);
    for (const auto& transfer : ended) {
        shared_.hopEnded(*transfer);
    }
    shared_.releaseLate();
    return ended;
}

void CurlLoop::useSharedAnswers() {
    for (auto& transfer : shared_.takeReleased()) {
        lineUp(std::move(transfer), false);
    }
    for (std::size_t bytes = 0; bytes < maximumCopiedBytes;) {
        auto transfer = shared_.takeAnswered();
        if (!transfer) {
            break;
        }
        const HTTPCache::Answer* const answer = shared_.answerTo(*transfer);
        bytes += answer != nullptr ? answer->body.size() : 0;
        if (answer == nullptr || transfer->endHopWith(*answer)) {
            lineUp(std::move(transfer));  // its answer is gone, or redirects
        } else {
            ended_.push_back(std::move(transfer));
        }
    }
}

void CurlLoop::startTransfers() {
    while (auto transfer = queue_.take()) {
        CURL* handle = (*transfer)->beginHop(budget_, openSockets_, authorities_);
        curl_multi_add_handle(multi_.get(), handle);
        running_.push_back({std::move(*transfer), handle});
    }
}

/// Where a connection turns out to carry one request at a time, libcurl 7.88 lets those that wait
/// for it go; 8.14 keeps them until the first has its answer. So they are added again once the
/// connection is there. If it can carry them, they find it.
void CurlLoop::releaseWaiting() {
    for (const Running& connected : running_) {
        if (!connected.transfer->takeConnected()) {
            continue;
        }
        for (const Running& waiting : running_) {
            if (waiting.transfer->waitsForConnectionOf(*connected.transfer)) {
                curl_multi_remove_handle(multi_.get(), waiting.handle);
                waiting.transfer->stopWaiting();
                curl_multi_add_handle(multi_.get(), waiting.handle);
            }
        }
    }
}

void CurlLoop::collectFinished(Transfers& ended) {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
        const CURLcode outcome = message->data.result;
        endHop(find(message->easy_handle), outcome, ended);
    }
}

void CurlLoop::endTimedOut(Transfers& ended) {
    const auto now = options_.now();
    for (std::size_t i = running_.size(); i-- > 0;) {
        if (running_[i].transfer->deadline() <= now) {
            endHop(i, CURLE_OPERATION_TIMEDOUT, ended);
        }
    }
}

void CurlLoop::endHop(std::size_t index, CURLcode outcome, Transfers& ended) {
    curl_multi_remove_handle(multi_.get(), running_[index].handle);
    auto transfer = std::move(running_[index].transfer);
    running_[index] = std::move(running_.back());
    running_.pop_back();
    queue_.release(transfer->host(), outcome == CURLE_OK);
    if (transfer->canTrustOthers(outcome, authorities_)) {
        const std::string host = transfer->host();
        queue_.pushFront(host, std::move(transfer));
        return;
    }
    const bool hasNextHop = transfer->endHop(outcome);
    if (hasNextHop) {
        shared_.hopEnded(*transfer);
        lineUp(std::move(transfer));
    } else {
        ended.push_back(std::move(transfer));
    }
}

std::size_t CurlLoop::find(const CURL* handle) const {
    const auto found = std::find_if(running_.begin(), running_.end(), [&](const Running& running) {
        return running.handle == handle;
    });
    return static_cast<std::size_t>(found - running_.begin());
}

/// Of the running transfers.
TransferClock::Time CurlLoop::firstDeadline() const {
    auto first = TransferClock::Time::max();
    for (const Running& running : running_) {
        first = std::min(first, running.transfer->deadline());
    }
    return first;
}

void CurlLoop::wait(TransferClock::Time latest, std::span<pollfd> others) {
    latest = std::min(latest, firstDeadline());
    for (const std::string& name : names_.begun()) {
        const auto entry = lookingUp_.find(name);
        for (std::size_t i = 0; entry != lookingUp_.end() && i < entry->second.size(); ++i) {
            latest = std::min(latest, lookUpDeadline(name, entry->second[i]));
        }
    }
    latest = std::min(latest, shared_.deadline());
    const auto now = options_.now();
    if (latest <= now || !ended_.empty()) {
        return;
    }
    // Rounded up: rounded down, the loop would spin through the last fraction of a millisecond.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        std::min<std::chrono::nanoseconds>(latest - now, wake_ ? maximumWait : waitWithoutWake));
    std::vector<pollfd> watched(others.begin(), others.end());
    watched.insert(watched.end(), sockets_.begin(), sockets_.end());
    watched.push_back({wake_.get(), POLLIN, 0});
    poll(watched.data(), watched.size(), static_cast<int>(std::min(left, untilTimeout()).count()));
    eventfd_t ignored = 0;
    if (watched.back().revents != 0) {
        eventfd_read(wake_.get(), &ignored);
    }
    watched.pop_back();
    std::copy_n(watched.begin(), others.size(), others.begin());
    watched.erase(watched.begin(), watched.begin() + static_cast<std::ptrdiff_t>(others.size()));
    std::erase_if(watched, isNotReady);
    ready_ = std::move(watched);
}

void CurlLoop::wake() { eventfd_write(wake_.get(), 1); }

// ---- libcurl's sockets and timeouts

/// libcurl calls this when it wants to wait for something else at a socket.
int CurlLoop::watchSocket(CURL* /*handle*/, curl_socket_t socket, int what, void* self,
                          void* /*unused*/) {
    auto& sockets = static_cast<CurlLoop*>(self)->sockets_;
    std::erase_if(sockets, [socket](const pollfd& watched) { return watched.fd == socket; });
    if (what != CURL_POLL_REMOVE) {
        const int events =
            ((what & CURL_POLL_IN) != 0 ? POLLIN : 0) | ((what & CURL_POLL_OUT) != 0 ? POLLOUT : 0);
        sockets.push_back({socket, static_cast<short>(events), 0});
    }
    return 0;
}

void CurlLoop::lookAtSockets() {
    ready_ = sockets_;
    poll(ready_.data(), ready_.size(), 0);
    std::erase_if(ready_, isNotReady);
}

/// Until libcurl's next timeout.
std::chrono::milliseconds CurlLoop::untilTimeout() const {
    long milliseconds = -1;  // there is none
    curl_multi_timeout(multi_.get(), &milliseconds);
    return milliseconds < 0 ? maximumWait : std::chrono::milliseconds(milliseconds);
}

/// Lets the transfers go on whose sockets are ready or whose time has come. `curl_multi_perform`
/// would look at each transfer, with a system call.
void CurlLoop::perform() {
    int ignored = 0;
    for (const pollfd& socket : std::exchange(ready_, {})) {
        const bool isReadable = (socket.revents & (POLLIN | POLLERR | POLLHUP)) != 0;
        const bool isWritable = (socket.revents & POLLOUT) != 0;
        curl_multi_socket_action(
            multi_.get(), socket.fd,
            (isReadable ? CURL_CSELECT_IN : 0) | (isWritable ? CURL_CSELECT_OUT : 0), &ignored);
    }
    if (untilTimeout() == std::chrono::milliseconds::zero()) {
        curl_multi_socket_action(multi_.get(), CURL_SOCKET_TIMEOUT, 0, &ignored);
    }
}

}  // namespace glintmark::platform
