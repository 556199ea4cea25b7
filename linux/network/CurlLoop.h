#pragma once

#include <poll.h>

#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/system/FileDescriptor.h"
#include "linux/network/BodyBudget.h"
#include "linux/network/CurlHandles.h"
#include "linux/network/CurlProxy.h"
#include "linux/network/CurlTransfer.h"
#include "linux/network/HostQueue.h"
#include "linux/network/NameLookUps.h"
#include "linux/network/SharedAnswers.h"
#include "linux/network/TrustedAuthorities.h"

namespace glintmark::platform {

struct CurlURLSessionOptions;

/// The running and the queued transfers, and the connections that they share. For one thread,
/// except `wake`.
class CurlLoop {
public:
    using Transfers = std::vector<std::unique_ptr<CurlTransfer>>;

    /// `names` must outlive the loop.
    CurlLoop(const CurlURLSessionOptions& options, NameLookUps& names);
    ~CurlLoop();  ///< Aborts the running transfers.

    CurlLoop(const CurlLoop&) = delete;
    CurlLoop& operator=(const CurlLoop&) = delete;

    void add(std::unique_ptr<CurlTransfer> transfer);

    /// Does all work that needs no waiting. Returns the transfers that have ended. Queued
    /// transfers start only if `mayStart`.
    Transfers runOnce(bool mayStart);

    /// Waits until there is work, at most until `latest`. Also ends when one of `others` is ready,
    /// and notes that there; see poll(2).
    void wait(TransferClock::Time latest, std::span<pollfd> others);

    void wake();  ///< Ends the running `wait`, or the next one if none runs. Any thread.

    /// True if there is no transfer.
    bool idle() const {
        return queue_.empty() && lookingUp_.empty() && shared_.empty() && ended_.empty();
    }

    /// True if a transfer could start, or end with an answer from the cache.
    bool canStart() const { return queue_.canTake() || shared_.isReady(); }

private:
    /// A transfer whose name is being looked up.
    struct LookingUp {
        std::unique_ptr<CurlTransfer> transfer;
        bool isNextHop;
        TransferClock::Time since;
    };

    void lineUp(std::unique_ptr<CurlTransfer> transfer, bool mayWait = true);
    void useSharedAnswers();
    void enqueue(LookingUp waiting, const std::string& addresses);
    void takeLookedUp();
    TransferClock::Time lookUpDeadline(const std::string& name, const LookingUp& waiting) const;
    void endTimedOutLookUps(Transfers& ended);
    void startTransfers();
    void releaseWaiting();
    void collectFinished(Transfers& ended);
    TransferClock::Time firstDeadline() const;
    void endTimedOut(Transfers& ended);
    void endHop(std::size_t index, CURLcode outcome, Transfers& ended);
    std::size_t find(const CURL* handle) const;

    static int watchSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* unused);
    std::chrono::milliseconds untilTimeout() const;
    void lookAtSockets();
    void perform();

    const CurlURLSessionOptions& options_;
    const ProxySettings proxies_ = ProxySettings::fromEnvironment();
    NameLookUps& names_;
    TrustedAuthorities authorities_;
    std::unordered_map<std::string, std::vector<LookingUp>> lookingUp_;
    SharedAnswers shared_;
    Transfers ended_;  ///< Without a transfer of libcurl.
    BodyBudget<CurlTransfer> budget_;
    HostQueue<std::unique_ptr<CurlTransfer>> queue_;
    CurlTransfer::OpenSockets openSockets_;  ///< Above the handle, which closes sockets at its end.
    FileDescriptor wake_;                    ///< An eventfd(2).
    std::vector<pollfd> sockets_;  ///< Those of libcurl. Above the handle, which removes them.
    std::vector<pollfd> ready_;    ///< Those for which the last wait has ended.
    CurlMultiHandle multi_;

    struct Running {
        std::unique_ptr<CurlTransfer> transfer;
        CURL* handle;
    };
    std::vector<Running> running_;
};

}  // namespace glintmark::platform
