#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "platform/UserNotificationCenter.h"

namespace glintmark::doubles {

class VirtualQueues;

/// Keeps the notifications of the program. Handlers run on the fakes' background queue.
class FakeUserNotificationCenter final : public platform::UserNotificationCenter {
public:
    explicit FakeUserNotificationCenter(VirtualQueues& queues) : queues_(queues) {}

    void requestAuthorization(unsigned options, AuthorizationHandler handler) override;
    void add(platform::UserNotificationRequest request, AddHandler handler) override;

    /// Answers every pending request for permission.
    void answerAuthorization(bool granted, const std::optional<std::string>& error = std::nullopt);

    /// Rejects the next notification; two calls reject the next two.
    void rejectNext(std::string error) { errors_.emplace_back(std::move(error)); }

    const std::vector<unsigned>& authorizationRequests() const { return authorizationRequests_; }
    const std::vector<platform::UserNotificationRequest>& requests() const { return requests_; }

    /// For each of `requests()`, the queue from which it was added.
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
