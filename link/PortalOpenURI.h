#pragma once

#include <gio/gio.h>

#include <chrono>
#include <string>

namespace glintmark::link {

enum class PortalAnswer {
    opened,
    cancelled,   ///< By the user, in the portal's dialog.
    unavailable  ///< There is no portal, or it could not open the address.
};

/// How long to wait for the portal.
struct PortalTimeouts {
    std::chrono::milliseconds call{25'000};  ///< The bus may have to start the portal.

    /// The portal may ask the user which program to use. A request without an answer counts as
    /// opened: the portal has taken it, and a second try might open the address twice.
    std::chrono::milliseconds answer{120'000};
};

/// Opens `uri` through the desktop portal (org.freedesktop.portal.OpenURI). Runs the default main
/// context until the portal has answered. `connection` may be null. Main thread only.
PortalAnswer openThroughPortal(GDBusConnection* connection, const std::string& uri,
                               PortalTimeouts timeouts = {});

}  // namespace glintmark::link
