#include "linux/notifications/FreedesktopNotifications.h"

#include <gio/gio.h>

#include <functional>
#include <string>
#include <utility>

#include "linux/bus/DBusCall.h"
#include "linux/bus/DBusText.h"
#include "linux/glib/GLibHandles.h"

// Methods, hints and capabilities: freedesktop.org, Desktop Notifications Specification.

namespace glintmark::platform {

namespace {

constexpr DBusTarget server{"org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                            "org.freedesktop.Notifications"};
constexpr int defaultTimeout = -1;  // GDBus's 25 s: the bus may have to start the service
constexpr auto programTitle = "Glintmark";
constexpr guint replacesNothing = 0;
constexpr int serverDecidesWhenItExpires = -1;
constexpr auto noBus = "There is no session bus";

void runOnMainThread(std::function<void()> work) {
    using Work = std::function<void()>;
    const auto run = [](gpointer data) -> gboolean {
        (*static_cast<Work*>(data))();
        return G_SOURCE_REMOVE;
    };
    const auto release = [](gpointer data) { delete static_cast<Work*>(data); };
    g_idle_add_full(G_PRIORITY_DEFAULT, run, new Work(std::move(work)), release);
}

bool supportsMarkup(GVariant* capabilities) {
    const GVariantHandle list(g_variant_get_child_value(capabilities, 0));
    const std::unique_ptr<const gchar*, ReleaseWith<g_free>> names(
        g_variant_get_strv(list.get(), nullptr));
    return g_strv_contains(names.get(), "body-markup") != FALSE;
}

/// Escapes the body if the server reads markup in it. Titles are always plain text.
std::string bodyText(const std::string& body, bool markup) {
    std::string text = dbusText(body);
    if (!markup) {
        return text;
    }
    const GStringHandle escaped(g_markup_escape_text(text.c_str(), -1));
    return escaped.get();
}

GVariant* notifyArguments(const UserNotificationRequest& request, const std::string& icon,
                          bool markup) {
    GVariantBuilder hints;
    g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&hints, "{sv}", "desktop-entry",
                          g_variant_new_string(SessionBus::programName));
    return g_variant_new("(susss@asa{sv}i)", programTitle, replacesNothing, icon.c_str(),
                         dbusText(request.title).c_str(), bodyText(request.body, markup).c_str(),
                         g_variant_new_strv(nullptr, 0), &hints, serverDecidesWhenItExpires);
}

}  // namespace

struct FreedesktopNotifications::Shared {
    Shared(SessionBus& sessionBus, std::string programIcon)
        : bus(&sessionBus), icon(std::move(programIcon)), cancellable(g_cancellable_new()) {}

    GDBusConnection* connection() const { return bus != nullptr ? bus->connection() : nullptr; }

    void notify(const UserNotificationRequest& request, bool markup, const AddHandler& handler) {
        if (connection() == nullptr) {
            handler(noBus);
            return;
        }
        callDBus(connection(), server, "Notify", notifyArguments(request, icon, markup), "(u)",
                 defaultTimeout, cancellable.get(), [handler](GVariant*, const GError* error) {
                     handler(error != nullptr ? std::optional(errorText(error)) : std::nullopt);
                 });
    }

    SessionBus* bus;  ///< Null once the notification centre is destroyed.
    std::string icon;
    GObjectHandle<GCancellable> cancellable;
};

FreedesktopNotifications::FreedesktopNotifications(SessionBus& bus, std::string icon)
    : shared_(std::make_shared<Shared>(bus, std::move(icon))) {}

FreedesktopNotifications::~FreedesktopNotifications() {
    g_cancellable_cancel(shared_->cancellable.get());
    shared_->bus = nullptr;
}

void FreedesktopNotifications::requestAuthorization(unsigned /*options*/,
                                                    AuthorizationHandler handler) {
    runOnMainThread([shared = shared_, handler = std::move(handler)] {
        if (shared->connection() == nullptr) {
            handler(false, noBus);
            return;
        }
        callDBus(shared->connection(), server, "GetServerInformation", nullptr, "(ssss)",
                 defaultTimeout, shared->cancellable.get(),
                 [handler](GVariant*, const GError* error) {
                     if (error != nullptr) {
                         handler(false, errorText(error));
                     } else {
                         handler(true, std::nullopt);
                     }
                 });
    });
}

/// Asks each time if the server supports markup, since another server may have replaced it.
void FreedesktopNotifications::add(UserNotificationRequest request, AddHandler handler) {
    runOnMainThread([shared = shared_, request = std::move(request), handler = std::move(handler)] {
        if (shared->connection() == nullptr) {
            handler(noBus);
            return;
        }
        callDBus(shared->connection(), server, "GetCapabilities", nullptr, "(as)", defaultTimeout,
                 shared->cancellable.get(),
                 [shared, request, handler](GVariant* capabilities, const GError*) {
                     const bool markup = capabilities != nullptr && supportsMarkup(capabilities);
                     shared->notify(request, markup, handler);
                 });
    });
}

}  // namespace glintmark::platform
