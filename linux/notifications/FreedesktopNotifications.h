#pragma once

#include <memory>
#include <string>

#include "linux/bus/SessionBus.h"
#include "platform/UserNotificationCenter.h"

namespace glintmark::platform {

/// Notifications through the desktop's org.freedesktop.Notifications service, found anew for each
/// one, so that it may be absent, start later and restart.
///
/// Any thread; the work is done on the main thread, where all handlers run, never before the call
/// that took them has returned. Destroy it on the main thread, when no other thread calls it.
class FreedesktopNotifications : public UserNotificationCenter {
public:
    /// `icon`: the program's, by its name in the icon theme or by its "file" URI.
    FreedesktopNotifications(SessionBus& bus, std::string icon);
    ~FreedesktopNotifications() override;
    FreedesktopNotifications(const FreedesktopNotifications&) = delete;
    FreedesktopNotifications& operator=(const FreedesktopNotifications&) = delete;

    /// Granted when the service answers: Linux desktops ask nobody for permission.
    void requestAuthorization(unsigned options, AuthorizationHandler handler) override;
    void add(UserNotificationRequest request, AddHandler handler) override;

private:
    struct Shared;  ///< What outlives this in calls under way.

    std::shared_ptr<Shared> shared_;
};

}  // namespace glintmark::platform
