#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "platform/UserNotificationCenter.h"

namespace glintmark::doubles {

class VirtualQueues;

/// Keeps the notifications that were handed over. Handlers run on the fakes' background queue.
class FakeUserNotificationCenter final : public platform::UserNotificationCenter {
public:
    explicit FakeUserNotificationCenter(VirtualQueues& queues) : queues_(queues) {}

    void requestAuthorization(unsigned options, AuthorizationHandler handler) override;
    void add(platform::UserNotificationRequest request, AddHandler handler) override;

    /// Answers every request for permission that waits.
    void answerAuthorization(bool granted, const std::optional<std::string>& error = std::nullopt);

    /// Rejects the next notification that has no answer yet; others are accepted.
    void rejectNext(std::string error) { errors_.emplace_back(std::move(error)); }

    const std::vector<unsigned>& authorizationRequests() const { return authorizationRequests_; }
    const std::vector<platform::UserNotificationRequest>& requests() const { return requests_; }

    /// The queue that handed over each of `requests()`.
    const std::vector<std::string>& requestQueues() const { return requestQueues_; }

private:
    VirtualQueues& queues_;
    std::vector<unsigned> authorizationRequests_;
    std::vector<AuthorizationHandler> waiting_;
    std::vector<platform::UserNotificationRequest> requests_;
    std::vector<std::string> requestQueues_;
    std::deque<std::string> errors_;
};

}  // namespace glintmark::doubles
