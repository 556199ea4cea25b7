#pragma once

#include <memory>
#include <string>

#include "linux/bus/SessionBus.h"
#include "platform/UserNotificationCenter.h"

namespace glintmark::platform {

/// Notifications through the desktop's org.freedesktop.Notifications service. Each one looks the
/// service up, so the service may be absent, start later and restart.
///
/// Any thread may call it. Handlers run on the main thread, always after the call that took them
/// has returned. Destroy it on the main thread when no other thread calls it.
class FreedesktopNotifications : public UserNotificationCenter {
public:
    /// `icon`: the program's icon, as a name in the icon theme or as a "file" URI.
    FreedesktopNotifications(SessionBus& bus, std::string icon);
    ~FreedesktopNotifications() override;
    FreedesktopNotifications(const FreedesktopNotifications&) = delete;
    FreedesktopNotifications& operator=(const FreedesktopNotifications&) = delete;

    /// Granted if the service answers, because Linux desktops do not ask the user for permission.
    void requestAuthorization(unsigned options, AuthorizationHandler handler) override;
    void add(UserNotificationRequest request, AddHandler handler) override;

private:
    struct Shared;  ///< Outlives this in pending calls.

    std::shared_ptr<Shared> shared_;
};

}  // namespace glintmark::platform
