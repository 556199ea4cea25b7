#pragma once

#include <gio/gio.h>

#include <chrono>
#include <cstdint>
#include <functional>
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
    /// Below the path that libayatana-appindicator uses. Cinnamon opens the menu of items there at
    /// a left click; it takes other items for ones with a window, and only asks them to show that.
    static constexpr auto path = "/org/ayatana/NotificationItem/glintmark";

    /// How long after an activation a panel may take to open the menu.
    static constexpr std::chrono::milliseconds menuPatience{700};

    /// `iconFolder` holds the symbolic icon while the item exists. It is absent if the icon is
    /// installed, so that every panel finds it by its name.
    StatusNotifierItem(SessionBus& bus, std::optional<std::string> iconFolder);
    ~StatusNotifierItem() override;
    StatusNotifierItem(const StatusNotifierItem&) = delete;
    StatusNotifierItem& operator=(const StatusNotifierItem&) = delete;

    StatusBarButton* button() override { return this; }
    void setMenu(Menu menu) override { menu_.setMenu(std::move(menu)); }

    /// `handler` runs when the user activated the item on a panel that then opened no menu.
    void setActivationHandler(std::function<void()> handler) { activated_ = std::move(handler); }

private:
    void setImage(const TemplateImage& image) override;
    std::string iconName() const;
    std::string iconThemePath() const;

    void offer(GDBusConnection* connection);
    void stopOffering();
    GVariant* property(const std::string& name) const;
    void call(const std::string& method, GDBusMethodInvocation* invocation);
    void awaitMenu();
    void followWatcher(GDBusConnection* connection);
    void watcherAppeared(const char* owner);
    void hostAppeared();
    void registerItem();
    void registerLater();

    std::optional<std::string> iconFolder_;
    std::optional<SymbolicIconFolder> symbolicIcon_;
    bool readsIconFiles_ = true;  ///< False if the watcher cannot show the icon in `iconFolder_`.
    GVariantHandle pixmaps_;
    DBusMenu menu_;
    std::optional<DBusObject> object_;
    GObjectHandle<GDBusConnection> connection_;
    GObjectHandle<GCancellable> cancellable_;  ///< For the calls to the current watcher.
    guint watch_ = 0;
    guint hostSignal_ = 0;
    std::chrono::milliseconds pause_{};
    GSourceId retry_;
    std::function<void()> activated_;
    std::uint64_t timesShown_ = 0;  ///< Of the menu, before the last activation.
    GSourceId menuTimeout_;
    SessionBus::Subscription subscription_;
};

/// The status area of any panel that supports StatusNotifierItem.
class StatusNotifierBar : public StatusBar {
public:
    explicit StatusNotifierBar(SessionBus& bus) : bus_(bus) {}

    /// `length` has no effect: the panel chooses the item's width.
    std::unique_ptr<StatusItem> statusItem(double length) override;

    /// Passed to the items that are made from now on.
    void setActivationHandler(std::function<void()> handler) { activated_ = std::move(handler); }

    /// Asks the desktop whether a panel shows an item of this program. `answer` runs once, from the
    /// main loop; with false if there is no bus or no answer.
    void askIfShown(std::function<void(bool)> answer) const;

private:
    SessionBus& bus_;
    std::function<void()> activated_;
};

}  // namespace glintmark::platform
