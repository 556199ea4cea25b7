#include "tests/doubles/FakeUserNotificationCenter.h"

#include <utility>

#include "tests/doubles/VirtualQueues.h"

namespace glintmark::doubles {

void FakeUserNotificationCenter::requestAuthorization(unsigned options,
                                                      AuthorizationHandler handler) {
    authorizationRequests_.push_back(options);
    waiting_.push_back(std::move(handler));
}

void FakeUserNotificationCenter::add(platform::UserNotificationRequest request,
                                     AddHandler handler) {
    requests_.push_back(std::move(request));
    requestQueues_.push_back(queues_.current());
    std::optional<std::string> error;
    if (!errors_.empty()) {
        error = std::move(errors_.front());
        errors_.pop_front();
    }
    queues_.background().async(
        [handler = std::move(handler), error = std::move(error)] { handler(error); });
}

void FakeUserNotificationCenter::answerAuthorization(bool granted,
                                                     const std::optional<std::string>& error) {
    for (auto& handler : std::exchange(waiting_, {})) {
        queues_.background().async([=] { handler(granted, error); });
    }
}

}  // namespace glintmark::doubles
