#include "linux/panel/PortalFileChooser.h"

#include <algorithm>
#include <utility>

#include "linux/bus/DBusCall.h"
#include "linux/bus/DBusText.h"

// org.freedesktop.portal.FileChooser and .Request of the XDG desktop portal's documentation.

namespace glintmark::platform {

namespace {

constexpr DBusTarget fileChooser{"org.freedesktop.portal.Desktop",
                                 "/org/freedesktop/portal/desktop",
                                 "org.freedesktop.portal.FileChooser"};
constexpr auto requestInterface = "org.freedesktop.portal.Request";
constexpr auto handleToken = "glintmark";
constexpr guint minimumVersion = 3;          // the first that can choose folders
constexpr int timeoutMilliseconds = 60'000;  // the bus may have to start the portal and its backend
constexpr guint responseSuccess = 0;

/// The path of the object that will send the dialog's response. The path is computed before the
/// call, because the response may arrive before the call returns.
std::string expectedRequestPath(GDBusConnection* connection) {
    std::string sender = g_dbus_connection_get_unique_name(connection) + 1;  // without the colon
    std::replace(sender.begin(), sender.end(), '.', '_');
    return "/org/freedesktop/portal/desktop/request/" + sender + "/" + handleToken;
}

std::optional<std::string> firstPath(GVariant* results) {
    const GVariantHandle uris(g_variant_lookup_value(results, "uris", G_VARIANT_TYPE_STRING_ARRAY));
    if (uris == nullptr || g_variant_n_children(uris.get()) == 0) {
        return std::nullopt;
    }
    const char* uri = nullptr;
    g_variant_get_child(uris.get(), 0, "&s", &uri);
    const GStringHandle path(g_filename_from_uri(uri, nullptr, nullptr));
    return path != nullptr ? std::optional<std::string>(path.get()) : std::nullopt;
}

}  // namespace

PortalFileChooser::PortalFileChooser(GDBusConnection* connection, OpenPanel::Settings settings,
                                     Done done)
    : connection_(shareGObject(connection)),
      cancellable_(g_cancellable_new()),
      settings_(std::move(settings)),
      done_(std::move(done)) {
    checkVersion();
}

PortalFileChooser::~PortalFileChooser() {
    g_cancellable_cancel(cancellable_.get());
    if (watch_ != 0) {
        g_bus_unwatch_name(watch_);
    }
    if (responseSignal_ != 0) {
        g_dbus_connection_signal_unsubscribe(connection_.get(), responseSignal_);
    }
    if (!requestPath_.empty()) {
        g_dbus_connection_call(connection_.get(), fileChooser.name, requestPath_.c_str(),
                               requestInterface, "Close", nullptr, nullptr,
                               G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr, nullptr);
    }
}

/// An older portal would ignore "directory" and show a dialog for files. Portals from this version
/// on also use the expected request path.
void PortalFileChooser::checkVersion() {
    getDBusProperty(connection_.get(), fileChooser, "version", timeoutMilliseconds,
                    cancellable_.get(), [this](GVariant* version, const GError* error) {
                        if (isCancelled(error)) {
                            return;
                        }
                        if (version == nullptr ||
                            g_variant_is_of_type(version, G_VARIANT_TYPE_UINT32) == FALSE ||
                            g_variant_get_uint32(version) < minimumVersion) {
                            finish(std::nullopt);
                            return;
                        }
                        open();
                    });
}

void PortalFileChooser::open() {
    subscribeToResponse();
    GVariantBuilder options;
    g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
    const auto add = [&options](const char* name, GVariant* value) {
        g_variant_builder_add(&options, "{sv}", name, value);
    };
    add("handle_token", g_variant_new_string(handleToken));
    add("modal", g_variant_new_boolean(TRUE));
    add("directory", g_variant_new_boolean(settings_.canChooseDirectories ? TRUE : FALSE));
    add("multiple", g_variant_new_boolean(settings_.allowsMultipleSelection ? TRUE : FALSE));
    constexpr auto noParentWindow = "";
    callDBus(
        connection_.get(), fileChooser, "OpenFile",
        g_variant_new("(ssa{sv})", noParentWindow, dbusText(settings_.message).c_str(), &options),
        "(o)", timeoutMilliseconds, cancellable_.get(),
        [this](GVariant* result, const GError* error) {
            if (isCancelled(error)) {
                return;
            }
            if (result == nullptr) {
                finish(std::nullopt);
            } else {
                watchPortal();
            }
        });
}

void PortalFileChooser::subscribeToResponse() {
    requestPath_ = expectedRequestPath(connection_.get());
    const auto received = [](GDBusConnection*, const gchar*, const gchar*, const gchar*,
                             const gchar*, GVariant* response, gpointer self) {
        static_cast<PortalFileChooser*>(self)->handleResponse(response);
    };
    responseSignal_ = g_dbus_connection_signal_subscribe(
        connection_.get(), fileChooser.name, requestInterface, "Response", requestPath_.c_str(),
        nullptr, G_DBUS_SIGNAL_FLAGS_NONE, received, this, nullptr);
}

void PortalFileChooser::watchPortal() {
    const auto vanished = [](GDBusConnection*, const gchar*, gpointer data) {
        auto* self = static_cast<PortalFileChooser*>(data);
        self->requestPath_.clear();
        self->finish(OpenPanel::Result{});
    };
    watch_ = g_bus_watch_name_on_connection(connection_.get(), fileChooser.name,
                                            G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr, vanished, this,
                                            nullptr);
}

void PortalFileChooser::handleResponse(GVariant* response) {
    requestPath_.clear();  // the dialog is closed
    if (g_variant_is_of_type(response, G_VARIANT_TYPE("(ua{sv})")) == FALSE) {
        finish(OpenPanel::Result{});
        return;
    }
    guint code = 0;
    GVariant* results = nullptr;
    g_variant_get(response, "(u@a{sv})", &code, &results);
    const GVariantHandle owner(results);
    if (code == responseSuccess) {
        finish(OpenPanel::Result{ModalResponse::ok, firstPath(results)});
    } else {
        finish(OpenPanel::Result{});
    }
}

void PortalFileChooser::finish(std::optional<OpenPanel::Result> result) {
    if (done_) {
        std::exchange(done_, nullptr)(std::move(result));
    }
}

}  // namespace glintmark::platform
