#include "linux/statusitem/StatusNotifierItem.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "linux/bus/DBusCall.h"
#include "linux/queues/CoalescedTimeout.h"
#include "linux/statusitem/StatusNotifierItemXml.h"

// The words item, watcher and host and the names of the properties are those of freedesktop.org's
// StatusNotifierItem specification, as KDE implements it.

namespace glintmark::platform {

namespace {

using std::chrono::milliseconds;

constexpr DBusTarget watcher{"org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher",
                             "org.kde.StatusNotifierWatcher"};
constexpr DBusTarget watcherProperties{watcher.name, watcher.path,
                                       "org.freedesktop.DBus.Properties"};
constexpr DBusTarget busDaemon{"org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus"};
constexpr auto cinnamonWatcher = "org.x.StatusNotifierWatcher";
constexpr int timeoutMilliseconds = 10'000;
constexpr int shownTimeoutMilliseconds = 1000;
constexpr milliseconds firstPause{1000};
constexpr milliseconds maximumPause{60'000};

constexpr auto programTitle = "Glintmark";
constexpr std::array pixmapSizes{18, 22, 24, 32, 36, 48, 64};

GVariant* pixmaps(const TemplateImage& image) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a(iiay)"));
    const TemplateRenderer renderer;
    for (const int size : pixmapSizes) {
        const auto argb = renderer.render(image, size);
        g_variant_builder_add(
            &builder, "(ii@ay)", size, size,
            g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, argb.data(), argb.size(), 1));
    }
    return g_variant_builder_end(&builder);
}

GVariant* noPixmaps() { return g_variant_new_array(G_VARIANT_TYPE("(iiay)"), nullptr, 0); }

GVariant* toolTip() { return g_variant_new("(s@a(iiay)ss)", "", noPixmaps(), programTitle, ""); }

/// True if `items`, a watcher's list, contains the item of the connection `uniqueName`. Watchers
/// list items with or without the object's path; GNOME's writes "@" before it.
bool listsItemOf(GVariant* items, const char* uniqueName) {
    GVariantIter iterator;
    g_variant_iter_init(&iterator, items);
    const char* item = nullptr;
    const std::size_t length = std::strlen(uniqueName);
    while (g_variant_iter_next(&iterator, "&s", &item) != FALSE) {
        if (std::strncmp(item, uniqueName, length) == 0 &&
            std::strchr("/@", item[length]) != nullptr) {  // or the end
            return true;
        }
    }
    return false;
}

/// `reply` holds all properties of a watcher. A property that is missing denies nothing.
bool isShown(GVariant* reply, const char* uniqueName) {
    const GVariantHandle properties(g_variant_get_child_value(reply, 0));
    gboolean hasHost = TRUE;
    g_variant_lookup(properties.get(), "IsStatusNotifierHostRegistered", "b", &hasHost);
    const GVariantHandle items(g_variant_lookup_value(
        properties.get(), "RegisteredStatusNotifierItems", G_VARIANT_TYPE_STRING_ARRAY));
    return hasHost != FALSE && (items == nullptr || listsItemOf(items.get(), uniqueName));
}

}  // namespace

StatusNotifierItem::StatusNotifierItem(SessionBus& bus, std::optional<std::string> iconFolder)
    : iconFolder_(std::move(iconFolder)), pixmaps_(g_variant_ref_sink(noPixmaps())) {
    subscription_ = bus.observe([this](GDBusConnection* connection) { offer(connection); });
}

StatusNotifierItem::~StatusNotifierItem() { stopOffering(); }

void StatusNotifierItem::setImage(const TemplateImage& image) {
    symbolicIcon_.reset();
    if (iconFolder_) {
        symbolicIcon_.emplace(*iconFolder_, image);
    }
    pixmaps_.reset(g_variant_ref_sink(pixmaps(image)));
    if (object_) {
        object_->emit("NewIconThemePath", g_variant_new("(s)", iconThemePath().c_str()));
        object_->emit("NewIcon", nullptr);
    }
}

/// Empty if the panel should take the pixmaps.
std::string StatusNotifierItem::iconName() const {
    const bool isReadable = iconFolder_ ? !iconThemePath().empty() && readsIconFiles_ : true;
    return isReadable ? SymbolicIconFolder::iconName : "";
}

std::string StatusNotifierItem::iconThemePath() const {
    return symbolicIcon_ ? symbolicIcon_->path() : "";
}

void StatusNotifierItem::offer(GDBusConnection* connection) {
    stopOffering();
    if (connection == nullptr) {
        return;
    }
    connection_ = shareGObject(connection);
    menu_.offer(connection);
    object_.emplace(
        connection, path, statusNotifierItemXml,
        [this](const std::string& method, GVariant*, GDBusMethodInvocation* invocation) {
            call(method, invocation);
        },
        [this](const std::string& name) { return property(name); });
    followWatcher(connection);
}

void StatusNotifierItem::stopOffering() {
    if (connection_ == nullptr) {
        return;
    }
    retry_.reset();
    menuTimeout_.reset();
    if (cancellable_ != nullptr) {
        g_cancellable_cancel(cancellable_.get());
    }
    g_bus_unwatch_name(watch_);
    g_dbus_connection_signal_unsubscribe(connection_.get(), hostSignal_);
    object_.reset();
    menu_.offer(nullptr);
    connection_.reset();
}

/// The item has only a menu, and panels open it themselves. Some panels ignore `ItemIsMenu` and
/// send an activation first. Of these, some open the menu when the item refuses the activation, and
/// some do nothing more.
void StatusNotifierItem::call(const std::string& method, GDBusMethodInvocation* invocation) {
    if (method == "Activate" || method == "SecondaryActivate") {
        g_dbus_method_invocation_return_error_literal(
            invocation, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD, "There is nothing but a menu");
    } else {
        g_dbus_method_invocation_return_value(invocation, nullptr);
    }
    if (method == "Activate" && activated_) {
        awaitMenu();
    }
}

void StatusNotifierItem::awaitMenu() {
    timesShown_ = menu_.timesShown();
    const auto look = [](gpointer data) -> gboolean {
        auto* self = static_cast<StatusNotifierItem*>(data);
        self->menuTimeout_.forget();
        if (self->menu_.timesShown() == self->timesShown_) {
            self->activated_();
        }
        return G_SOURCE_REMOVE;
    };
    menuTimeout_ = GSourceId(g_timeout_add(static_cast<guint>(menuPatience.count()), look, this));
}

GVariant* StatusNotifierItem::property(const std::string& name) const {
    if (name == "Category") {
        return g_variant_new_string("ApplicationStatus");
    }
    if (name == "Id") {
        return g_variant_new_string("glintmark");
    }
    if (name == "Title") {
        return g_variant_new_string(programTitle);
    }
    if (name == "Status") {
        return g_variant_new_string("Active");
    }
    if (name == "WindowId") {
        return g_variant_new_int32(0);
    }
    if (name == "IconThemePath") {
        return g_variant_new_string(iconThemePath().c_str());
    }
    if (name == "IconName") {
        return g_variant_new_string(iconName().c_str());
    }
    if (name == "IconPixmap") {
        return g_variant_ref(pixmaps_.get());
    }
    if (name == "OverlayIconPixmap" || name == "AttentionIconPixmap") {
        return noPixmaps();
    }
    if (name == "ToolTip") {
        return toolTip();
    }
    if (name == "ItemIsMenu") {
        return g_variant_new_boolean(TRUE);
    }
    if (name == "Menu") {
        return g_variant_new_object_path(DBusMenu::path);
    }
    return g_variant_new_string("");  // the names of overlay, attention icon and movie: none
}

void StatusNotifierItem::followWatcher(GDBusConnection* connection) {
    const auto appeared = [](GDBusConnection*, const gchar*, const gchar* owner, gpointer self) {
        static_cast<StatusNotifierItem*>(self)->watcherAppeared(owner);
    };
    const auto vanished = [](GDBusConnection*, const gchar*, gpointer data) {
        auto* self = static_cast<StatusNotifierItem*>(data);
        self->retry_.reset();
        if (self->cancellable_ != nullptr) {
            g_cancellable_cancel(self->cancellable_.get());
        }
    };
    const auto hostRegistered = [](GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                   const gchar*, GVariant*, gpointer self) {
        static_cast<StatusNotifierItem*>(self)->hostAppeared();
    };
    hostSignal_ = g_dbus_connection_signal_subscribe(
        connection, watcher.name, watcher.interface, "StatusNotifierHostRegistered", watcher.path,
        nullptr, G_DBUS_SIGNAL_FLAGS_NONE, hostRegistered, this, nullptr);
    watch_ = g_bus_watch_name_on_connection(connection, watcher.name, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                            appeared, vanished, this, nullptr);
}

/// Cinnamon's watcher takes the file of a symbolic icon for a name in the icon theme and shows
/// nothing, so it gets the pixmaps. It is recognised by its second name.
void StatusNotifierItem::watcherAppeared(const char* owner) {
    cancellable_.reset(g_cancellable_new());
    pause_ = firstPause;
    if (!iconFolder_) {
        registerItem();
        return;
    }
    callDBus(connection_.get(), busDaemon, "GetNameOwner", g_variant_new("(s)", cinnamonWatcher),
             "(s)", timeoutMilliseconds, cancellable_.get(),
             [this, owner = std::string(owner)](GVariant* result, const GError* error) {
                 if (isCancelled(error)) {
                     return;
                 }
                 const char* cinnamon = "";
                 if (result != nullptr) {
                     g_variant_get(result, "(&s)", &cinnamon);
                 }
                 readsIconFiles_ = owner != cinnamon;
                 registerItem();
             });
}

/// A watcher that outlives its last host may have dropped the item together with that host.
/// Registers only if the watcher does not list the item, since some watchers complain about a
/// second registration.
void StatusNotifierItem::hostAppeared() {
    if (cancellable_ == nullptr) {
        return;  // `appeared` has not run yet and will register the item
    }
    getDBusProperty(
        connection_.get(), watcher, "RegisteredStatusNotifierItems", timeoutMilliseconds,
        cancellable_.get(), [this](GVariant* items, const GError* error) {
            if (isCancelled(error)) {
                return;
            }
            if (items == nullptr ||
                g_variant_is_of_type(items, G_VARIANT_TYPE_STRING_ARRAY) == FALSE ||
                !listsItemOf(items, g_dbus_connection_get_unique_name(connection_.get()))) {
                registerItem();
            }
        });
}

void StatusNotifierItem::registerItem() {
    callDBus(connection_.get(), watcher, "RegisterStatusNotifierItem", g_variant_new("(s)", path),
             "()", timeoutMilliseconds, cancellable_.get(), [this](GVariant*, const GError* error) {
                 if (error != nullptr && !isCancelled(error)) {
                     registerLater();
                 }
             });
}

void StatusNotifierItem::registerLater() {
    const auto again = [](gpointer data) -> gboolean {
        auto* self = static_cast<StatusNotifierItem*>(data);
        self->retry_.forget();
        self->registerItem();
        return G_SOURCE_REMOVE;
    };
    retry_ = GSourceId(addCoalescedTimeout(pause_, again, this));
    pause_ = std::min(pause_ * 2, maximumPause);
}

std::unique_ptr<StatusItem> StatusNotifierBar::statusItem(double /*length*/) {
    // Without a runtime directory, GLib returns the cache directory.
    const GStringHandle folder(g_build_filename(g_get_user_runtime_dir(), "glintmark", nullptr));
    const bool isInstalled =
        isSymbolicIconInstalled(g_get_system_data_dirs(), SymbolicIconFolder::iconName);
    auto item = std::make_unique<StatusNotifierItem>(
        bus_, isInstalled ? std::nullopt : std::optional<std::string>(folder.get()));
    item->setActivationHandler(activated_);
    return item;
}

void StatusNotifierBar::askIfShown(std::function<void(bool)> answer) const {
    if (bus_.connection() == nullptr) {
        answer(false);
        return;
    }
    const std::string self = g_dbus_connection_get_unique_name(bus_.connection());
    callDBus(bus_.connection(), watcherProperties, "GetAll",
             g_variant_new("(s)", watcher.interface), "(a{sv})", shownTimeoutMilliseconds, nullptr,
             [self, answer = std::move(answer)](GVariant* result, const GError*) {
                 answer(result != nullptr && isShown(result, self.c_str()));
             });
}

}  // namespace glintmark::platform
