#pragma once

#include <gio/gio.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "linux/bus/DBusObject.h"
#include "linux/bus/SessionBus.h"
#include "linux/statusitem/DBusMenu.h"
#include "linux/statusitem/TemplateIcon.h"
#include "platform/StatusBar.h"

namespace glintmark::platform {

/// A status item on the bus: org.kde.StatusNotifierItem with its menu. It registers with the
/// panel's watcher, and again whenever the watcher or the bus restarts. Main thread only.
class StatusNotifierItem : public StatusItem, private StatusBarButton {
public:
    static constexpr auto path = "/StatusNotifierItem";

    /// `iconFolder` holds the symbolic icon while the item exists.
    StatusNotifierItem(SessionBus& bus, std::string iconFolder);
    ~StatusNotifierItem() override;
    StatusNotifierItem(const StatusNotifierItem&) = delete;
    StatusNotifierItem& operator=(const StatusNotifierItem&) = delete;

    StatusBarButton* button() override { return this; }
    void setMenu(Menu menu) override { menu_.setMenu(std::move(menu)); }

private:
    void setImage(const TemplateImage& image) override;

    void offer(GDBusConnection* connection);
    void stopOffering();
    GVariant* property(const std::string& name) const;
    void followWatcher(GDBusConnection* connection);
    void hostAppeared();
    void registerItem();
    void registerLater();

    std::string iconFolder_;
    std::optional<SymbolicIconFolder> symbolicIcon_;
    GVariantHandle pixmaps_;
    DBusMenu menu_;
    std::optional<DBusObject> object_;
    GObjectHandle<GDBusConnection> connection_;
    GObjectHandle<GCancellable> cancellable_;  ///< For the calls to the current watcher.
    guint watch_ = 0;
    guint hostSignal_ = 0;
    std::chrono::milliseconds pause_{};
    GSourceId retry_;
    SessionBus::Subscription subscription_;
};

/// The status area of any panel that supports StatusNotifierItem.
class StatusNotifierBar : public StatusBar {
public:
    explicit StatusNotifierBar(SessionBus& bus) : bus_(bus) {}

    /// `length` has no effect: the panel chooses the item's width.
    std::unique_ptr<StatusItem> statusItem(double length) override;

private:
    SessionBus& bus_;
};

}  // namespace glintmark::platform
