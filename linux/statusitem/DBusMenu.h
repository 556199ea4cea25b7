#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "linux/bus/DBusObject.h"
#include "linux/glib/GLibHandles.h"
#include "linux/statusitem/DBusMenuLayout.h"
#include "linux/statusitem/FolderChecks.h"
#include "platform/Menu.h"

namespace glintmark::platform {

/// The com.canonical.dbusmenu object: a menu that the desktop's panel shows for the program.
///
/// Main thread only. The menu outlives bus connections. It is exported on at most one at a time.
class DBusMenu {
public:
    static constexpr auto path = "/MenuBar";

    /// `look` tells whether a folder can be read; see `FolderChecks`.
    explicit DBusMenu(FolderChecks::Look look = isFolderReadable);
    DBusMenu(const DBusMenu&) = delete;
    DBusMenu& operator=(const DBusMenu&) = delete;

    /// Exports the menu on `connection`; on none if null.
    void offer(GDBusConnection* connection);

    /// Replaces the whole menu and notifies the panel. Pending clicks on the old menu are dropped.
    void setMenu(Menu menu);

    /// How often a panel has announced that it shows the menu.
    std::uint64_t timesShown() const { return timesShown_; }

private:
    using Id = DBusMenuLayout::Id;

    GVariant* property(const std::string& name) const;
    void call(const std::string& method, GVariant* arguments, GDBusMethodInvocation* invocation);
    void getLayout(GVariant* arguments, GDBusMethodInvocation* invocation) const;
    void getGroupProperties(GVariant* arguments, GDBusMethodInvocation* invocation) const;
    void getProperty(GVariant* arguments, GDBusMethodInvocation* invocation) const;
    void event(GVariant* arguments, GDBusMethodInvocation* invocation);
    void eventGroup(GVariant* arguments, GDBusMethodInvocation* invocation);
    void aboutToShow(GVariant* arguments, GDBusMethodInvocation* invocation);
    void aboutToShowGroup(GVariant* arguments, GDBusMethodInvocation* invocation);
    void willShow(Id id);
    void checkFolders();
    void markFolders();

    void click(Id id);
    void runActions();

    DBusMenuLayout layout_;
    std::uint32_t revision_ = 1;
    std::uint64_t timesShown_ = 0;
    FolderChecks checks_;
    std::vector<Id> clicked_;  ///< Their actions wait until the panel has its answer.
    GSourceId actionSource_;
    std::optional<DBusObject> object_;
};

}  // namespace glintmark::platform
