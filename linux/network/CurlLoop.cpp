#include "linux/network/CurlLoop.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "linux/network/CurlOptions.h"
#include "linux/network/CurlURLSession.h"

namespace glintmark::platform {

namespace {

constexpr std::chrono::milliseconds maximumWait = std::chrono::minutes(1);

}  // namespace

CurlLoop::CurlLoop(const CurlURLSessionOptions& options)
    : options_(options),
      budget_(options.maximumArrivingBytes),
      queue_(options.maximumTransfersPerHost, options.maximumTransfers),
      multi_(curl_multi_init()) {
    // Idle connections that are kept open count too. libcurl closes the oldest of them to make
    // room.
    setCurlOption<CURLMOPT_MAX_TOTAL_CONNECTIONS>(multi_.get(),
                                                  static_cast<long>(options.maximumTransfers));
}

CurlLoop::~CurlLoop() {
    for (Running& running : running_) {
        curl_multi_remove_handle(multi_.get(), running.handle);
        running.transfer->endHop(CURLE_ABORTED_BY_CALLBACK);
    }
}

void CurlLoop::add(std::unique_ptr<CurlTransfer> transfer) {
    const std::string host = transfer->host();
    queue_.push(host, std::move(transfer));
}

CurlLoop::Transfers CurlLoop::runOnce(bool mayStart) {
    Transfers ended;
    if (mayStart) {
        startTransfers();
    }
    int stillRunning = 0;
    curl_multi_perform(multi_.get(), &stillRunning);
    collectFinished(ended);
    endTimedOut(ended);
    return ended;
}

void CurlLoop::startTransfers() {
    while (auto transfer = queue_.take()) {
        CURL* handle = (*transfer)->beginHop(budget_);
        curl_multi_add_handle(multi_.get(), handle);
        running_.push_back({std::move(*transfer), handle});
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
    queue_.release(transfer->host());
    const bool hasNextHop = transfer->endHop(outcome);
    if (hasNextHop) {
        const std::string host = transfer->host();
        queue_.pushFront(host, std::move(transfer));
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

void CurlLoop::wait(TransferClock::Time latest) {
    for (const Running& running : running_) {
        latest = std::min(latest, running.transfer->deadline());
    }
    const auto now = options_.now();
    if (latest <= now) {
        return;
    }
    // Rounded up: rounded down, the loop would spin through the last fraction of a millisecond.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        std::min<std::chrono::nanoseconds>(latest - now, maximumWait));
    curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(left.count()), nullptr);
}

void CurlLoop::wake() { curl_multi_wakeup(multi_.get()); }

}  // namespace glintmark::platform
