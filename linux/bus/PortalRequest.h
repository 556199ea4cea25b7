#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

inline constexpr auto portalName = "org.freedesktop.portal.Desktop";
inline constexpr auto portalPath = "/org/freedesktop/portal/desktop";

/// One request to the desktop portal (org.freedesktop.portal.Request), which is answered by a
/// signal of an object with a random name. Destroying it closes the request, with its dialog if
/// there is one. Main thread only.
///
/// Make it before the call whose options get the `token`: the response may arrive before the
/// call's answer.
class PortalRequest {
public:
    enum class Outcome { done = 0, cancelledByUser = 1, failed = 2 };

    /// Runs at most once, from the main loop, and may destroy the request. `results` is "a{sv}";
    /// empty if the portal ended or sent anything else, which count as `failed`.
    using Response = std::function<void(Outcome outcome, GVariant* results)>;

    PortalRequest(GDBusConnection* connection, Response response);
    ~PortalRequest();
    PortalRequest(const PortalRequest&) = delete;
    PortalRequest& operator=(const PortalRequest&) = delete;

    /// The value of the option "handle_token".
    const std::string& token() const { return token_; }

    /// Call this once the portal has accepted the request: from now on the end of the portal or of
    /// the bus is a response, which may come at once.
    void watchPortal();

private:
    void received(GVariant* arguments);
    void finish(Outcome outcome, GVariant* results);

    GObjectHandle<GDBusConnection> connection_;
    Response response_;  ///< Empty after the response: nothing is left to close.
    std::string token_;
    std::string path_;
    guint signal_ = 0;
    guint watch_ = 0;
};

}  // namespace glintmark::platform
