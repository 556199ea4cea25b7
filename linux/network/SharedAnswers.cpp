#include "linux/network/SharedAnswers.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace glintmark::platform {

bool SharedAnswers::take(std::unique_ptr<CurlTransfer>& transfer, bool mayWait) {
    const std::string& request = transfer->sharedRequest();
    if (request.empty() || transfer->maySendCookies()) {
        return false;
    }
    if (answerTo(*transfer) != nullptr) {
        answered_.push_back(std::move(transfer));
        return true;
    }
    const auto [first, isFirst] = inFlight_.try_emplace(request, transfer.get());
    if (isFirst || !mayWait || first->second->isOfSameLinkAs(*transfer)) {
        return false;
    }
    waiting_[request].push_back(std::move(transfer));
    return true;
}

void SharedAnswers::hopEnded(CurlTransfer& transfer) {
    transfer.keepAnswer(cache_);
    const auto found = inFlight_.find(transfer.sharedRequest());
    if (found == inFlight_.end() || found->second != &transfer) {
        return;
    }
    if (auto waiting = waiting_.extract(found->first)) {
        release(std::move(waiting.mapped()));
    }
    inFlight_.erase(found);
}

void SharedAnswers::releaseLate() {
    for (auto waiting = waiting_.begin(); waiting != waiting_.end();) {
        if (inFlight_.at(waiting->first)->sharedUntil() <= now_()) {
            release(std::move(waiting->second));
            waiting = waiting_.erase(waiting);
        } else {
            ++waiting;
        }
    }
}

void SharedAnswers::release(Transfers transfers) {
    std::ranges::move(transfers, std::back_inserter(released_));
}

SharedAnswers::Transfers SharedAnswers::takeReleased() { return std::exchange(released_, {}); }

std::unique_ptr<CurlTransfer> SharedAnswers::takeAnswered() {
    if (answered_.empty()) {
        return nullptr;
    }
    auto transfer = std::move(answered_.front());
    answered_.pop_front();
    return transfer;
}

const HTTPCache::Answer* SharedAnswers::answerTo(const CurlTransfer& transfer) {
    const HTTPCache::Answer* const answer = cache_.find(transfer.sharedRequest(), now_());
    return answer != nullptr && transfer.mayUse(*answer) ? answer : nullptr;
}

TransferClock::Time SharedAnswers::deadline() const {
    auto earliest = TransferClock::Time::max();
    for (const auto& [request, transfers] : waiting_) {
        earliest = std::min(earliest, inFlight_.at(request)->sharedUntil());
    }
    return earliest;
}

}  // namespace glintmark::platform
