#pragma once

#include <memory>
#include <vector>

#include "linux/network/BodyBudget.h"
#include "linux/network/CurlHandles.h"
#include "linux/network/CurlTransfer.h"
#include "linux/network/HostQueue.h"

namespace glintmark::platform {

class CurlCookies;
struct CurlURLSessionOptions;

/// The transfers that run and those that wait their turn, with the connections they share. For one
/// thread, `wake` apart.
class CurlLoop {
public:
    using Transfers = std::vector<std::unique_ptr<CurlTransfer>>;

    CurlLoop(const CurlURLSessionOptions& options, CurlCookies& cookies);
    ~CurlLoop();  ///< Breaks off what runs.

    CurlLoop(const CurlLoop&) = delete;
    CurlLoop& operator=(const CurlLoop&) = delete;

    void add(std::unique_ptr<CurlTransfer> transfer);

    /// Does what can be done without waiting and returns the transfers that have ended. Those in
    /// the queue begin only when `mayBegin`.
    Transfers turn(bool mayBegin);

    /// Waits until there is something to do, at most until `latest`.
    void wait(TransferClock::Time latest);

    void wake();  ///< Ends a `wait` that runs, or else the next one. Any thread.

    bool idle() const { return queue_.empty(); }
    bool canBegin() const { return queue_.canTake(); }  ///< The next turn can, if it may.

private:
    void beginTransfers();
    void collectEnded(Transfers& ended);
    void endOverdue(Transfers& ended);
    void endHop(std::size_t index, CURLcode outcome, Transfers& ended);
    std::size_t find(const CURL* handle) const;

    const CurlURLSessionOptions& options_;
    CurlCookies& cookies_;
    BodyBudget<CurlTransfer> budget_;
    HostQueue<std::unique_ptr<CurlTransfer>> queue_;
    CurlMultiHandle multi_;

    struct Running {
        std::unique_ptr<CurlTransfer> transfer;
        CURL* handle;
    };
    std::vector<Running> running_;
};

}  // namespace glintmark::platform
