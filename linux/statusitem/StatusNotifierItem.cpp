#include "linux/statusitem/StatusNotifierItem.h"

#include <algorithm>
#include <array>
#include <cstring>
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
constexpr int timeoutMilliseconds = 10'000;
constexpr milliseconds firstPause{1000};
constexpr milliseconds maximumPause{60'000};

constexpr auto programTitle = "Glintmark";
constexpr std::array pixmapSizes{18, 22, 24, 32, 36, 48, 64};

GVariant* pixmaps(const TemplateImage& image) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a(iiay)"));
    for (const int size : pixmapSizes) {
        const auto argb = renderTemplate(image, size);
        g_variant_builder_add(
            &builder, "(ii@ay)", size, size,
            g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, argb.data(), argb.size(), 1));
    }
    return g_variant_builder_end(&builder);
}

GVariant* noPixmaps() { return g_variant_new_array(G_VARIANT_TYPE("(iiay)"), nullptr, 0); }

GVariant* toolTip() { return g_variant_new("(s@a(iiay)ss)", "", noPixmaps(), programTitle, ""); }

/// True if `items`, a watcher's list, contains the item of the connection `uniqueName`. Watchers
/// list items with or without the object's path.
bool listsItemOf(GVariant* items, const char* uniqueName) {
    GVariantIter iterator;
    g_variant_iter_init(&iterator, items);
    const char* item = nullptr;
    const std::size_t length = std::strlen(uniqueName);
    while (g_variant_iter_next(&iterator, "&s", &item) != FALSE) {
        if (std::strncmp(item, uniqueName, length) == 0 &&
            (item[length] == '\0' || item[length] == '/')) {
            return true;
        }
    }
    return false;
}

/// The item has only a menu, and panels open it themselves. Some panels ignore `ItemIsMenu` and
/// send an activation first. They open the menu when the item refuses the activation.
void answer(const std::string& method, GDBusMethodInvocation* invocation) {
    if (method == "Activate" || method == "SecondaryActivate") {
        g_dbus_method_invocation_return_error_literal(
            invocation, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD, "There is nothing but a menu");
    } else {
        g_dbus_method_invocation_return_value(invocation, nullptr);
    }
}

}  // namespace

StatusNotifierItem::StatusNotifierItem(SessionBus& bus, std::string iconFolder)
    : iconFolder_(std::move(iconFolder)), pixmaps_(g_variant_ref_sink(noPixmaps())) {
    subscription_ = bus.observe([this](GDBusConnection* connection) { offer(connection); });
}

StatusNotifierItem::~StatusNotifierItem() { stopOffering(); }

void StatusNotifierItem::setImage(const TemplateImage& image) {
    symbolicIcon_.reset();
    symbolicIcon_.emplace(iconFolder_, image);
    pixmaps_.reset(g_variant_ref_sink(pixmaps(image)));
    if (object_) {
        object_->emit("NewIconThemePath", g_variant_new("(s)", symbolicIcon_->path().c_str()));
        object_->emit("NewIcon", nullptr);
    }
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
        [](const std::string& method, GVariant*, GDBusMethodInvocation* invocation) {
            answer(method, invocation);
        },
        [this](const std::string& name) { return property(name); });
    followWatcher(connection);
}

void StatusNotifierItem::stopOffering() {
    if (connection_ == nullptr) {
        return;
    }
    retry_.reset();
    if (cancellable_ != nullptr) {
        g_cancellable_cancel(cancellable_.get());
    }
    g_bus_unwatch_name(watch_);
    g_dbus_connection_signal_unsubscribe(connection_.get(), hostSignal_);
    object_.reset();
    menu_.offer(nullptr);
    connection_.reset();
}

GVariant* StatusNotifierItem::property(const std::string& name) const {
    const bool hasSymbolicIcon = symbolicIcon_ && !symbolicIcon_->path().empty();
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
        return g_variant_new_string(hasSymbolicIcon ? symbolicIcon_->path().c_str() : "");
    }
    if (name == "IconName") {
        return g_variant_new_string(hasSymbolicIcon ? SymbolicIconFolder::iconName : "");
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
    const auto appeared = [](GDBusConnection*, const gchar*, const gchar*, gpointer data) {
        auto* self = static_cast<StatusNotifierItem*>(data);
        self->cancellable_.reset(g_cancellable_new());
        self->pause_ = firstPause;
        self->registerItem();
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
    callDBus(connection_.get(), watcher, "RegisterStatusNotifierItem",
             g_variant_new("(s)", g_dbus_connection_get_unique_name(connection_.get())), "()",
             timeoutMilliseconds, cancellable_.get(), [this](GVariant*, const GError* error) {
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
    return std::make_unique<StatusNotifierItem>(bus_, folder.get());
}

}  // namespace glintmark::platform
