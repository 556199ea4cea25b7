#pragma once

#include <functional>
#include <optional>
#include <string>

namespace glintmark::platform {

enum AuthorizationOptions : unsigned { authorizationSound = 2, authorizationAlert = 4 };

/// A notification that is shown at once.
struct UserNotificationRequest {
    std::string identifier;
    std::string title;  ///< Plain text, as is the body.
    std::string body;
};

/// Shows notifications to the user. May be called from any thread; handlers may run on any thread.
class UserNotificationCenter {
public:
    /// `granted`: true if notifications will be shown. `error`: the reason if not, when known.
    using AuthorizationHandler =
        std::function<void(bool granted, const std::optional<std::string>& error)>;
    using AddHandler = std::function<void(const std::optional<std::string>& error)>;

    virtual ~UserNotificationCenter() = default;

    /// Asks whether the program may show notifications, and returns at once. `options` is a set of
    /// `AuthorizationOptions`. The handler is called exactly once.
    virtual void requestAuthorization(unsigned options, AuthorizationHandler handler) = 0;

    /// Sends a notification and returns at once. The handler is called exactly once, with the error
    /// if the notification was rejected.
    virtual void add(UserNotificationRequest request, AddHandler handler) = 0;
};

}  // namespace glintmark::platform
