#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "linux/network/CurlTransfer.h"
#include "linux/network/HTTPCache.h"

namespace glintmark::platform {

/// Saves requests: what has a fresh answer in the cache gets that one, and what equals a request in
/// flight waits for its answer (RFC 9111, section 4). Only an answer that is kept is shared;
/// without one, those that wait make their own requests. The requests of one link never wait for
/// each other, so that a fetch alone takes as long as without this. For one thread.
class SharedAnswers {
public:
    using Transfers = std::vector<std::unique_ptr<CurlTransfer>>;

    explicit SharedAnswers(std::function<TransferClock::Time()> now) : now_(std::move(now)) {}

    /// Takes `transfer`, whose hop is prepared, if it need not make a request now. Otherwise others
    /// may wait for its answer until `hopEnded`.
    bool take(std::unique_ptr<CurlTransfer>& transfer, bool mayWait);

    /// Call when the hop of a transfer that was not taken has ended, also if it never began.
    void hopEnded(CurlTransfer& transfer);

    /// Gives up waiting for answers that will not be kept, or take too long.
    void releaseLate();

    /// Those that wait no longer. They may have an answer now; they must not wait again.
    Transfers takeReleased();

    /// The next transfer with an answer in the cache; null if there is none.
    std::unique_ptr<CurlTransfer> takeAnswered();

    /// The answer that `transfer` may use; null if there is none. Valid until the next call.
    const HTTPCache::Answer* answerTo(const CurlTransfer& transfer);

    bool isReady() const { return !released_.empty() || !answered_.empty(); }
    bool empty() const { return !isReady() && waiting_.empty(); }

    /// The latest time for the next `releaseLate`.
    TransferClock::Time deadline() const;

private:
    void release(Transfers transfers);

    std::function<TransferClock::Time()> now_;
    HTTPCache cache_;

    // By the text of the request.
    std::unordered_map<std::string, const CurlTransfer*> inFlight_;
    std::unordered_map<std::string, Transfers> waiting_;  ///< For one of these; never empty lists.

    Transfers released_;
    std::deque<std::unique_ptr<CurlTransfer>> answered_;
};

}  // namespace glintmark::platform
