#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "linux/bus/DBusObject.h"
#include "linux/glib/GLibHandles.h"
#include "linux/statusitem/DBusMenuLayout.h"
#include "platform/Menu.h"

namespace glintmark::platform {

/// A menu that a desktop panel shows on the program's behalf: com.canonical.dbusmenu.
///
/// Main thread only. The menu outlives bus connections: it is offered on at most one at a time.
class DBusMenu {
public:
    static constexpr auto path = "/MenuBar";

    DBusMenu() = default;
    DBusMenu(const DBusMenu&) = delete;
    DBusMenu& operator=(const DBusMenu&) = delete;

    /// Offers the menu on `connection`, or nowhere when it is null.
    void offer(GDBusConnection* connection);

    /// Replaces the whole menu and tells the panel. Entries chosen before have no effect any more.
    void setMenu(Menu menu);

private:
    using Id = DBusMenuLayout::Id;

    GVariant* property(const std::string& name) const;
    void call(const std::string& method, GVariant* arguments, GDBusMethodInvocation* invocation);
    void getLayout(GVariant* arguments, GDBusMethodInvocation* invocation) const;
    void getGroupProperties(GVariant* arguments, GDBusMethodInvocation* invocation) const;
    void getProperty(GVariant* arguments, GDBusMethodInvocation* invocation) const;
    void event(GVariant* arguments, GDBusMethodInvocation* invocation);
    void eventGroup(GVariant* arguments, GDBusMethodInvocation* invocation);
    void aboutToShow(GVariant* arguments, GDBusMethodInvocation* invocation) const;
    void aboutToShowGroup(GVariant* arguments, GDBusMethodInvocation* invocation) const;

    void take(Id id, const std::string& event);
    void runChosen();

    DBusMenuLayout layout_;
    std::uint32_t revision_ = 1;
    std::vector<Id> chosen_;  ///< Entries whose action waits until the panel has its answer.
    GSourceId running_;
    std::optional<DBusObject> object_;
};

}  // namespace glintmark::platform
