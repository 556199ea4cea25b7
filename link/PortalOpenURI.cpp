#include "link/PortalOpenURI.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <utility>

#include "base/text/UUID.h"
#include "linux/bus/DBusCall.h"
#include "linux/glib/GLibHandles.h"

// org.freedesktop.portal.OpenURI and .Request of the XDG desktop portal's documentation.

namespace glintmark::link {

namespace {

using platform::GVariantHandle;

constexpr platform::DBusTarget portal{"org.freedesktop.portal.Desktop",
                                      "/org/freedesktop/portal/desktop",
                                      "org.freedesktop.portal.OpenURI"};
constexpr auto requestInterface = "org.freedesktop.portal.Request";
constexpr guint responseSuccess = 0;
constexpr guint responseCancelled = 1;

/// One request, which lives on the stack of the call that waits for it.
class Request {
public:
    Request(GDBusConnection* connection, const std::string& uri, PortalTimeouts timeouts)
        : connection_(connection), cancellable_(g_cancellable_new()), timeouts_(timeouts) {
        subscribe();
        call(uri);
    }
    ~Request() {
        g_cancellable_cancel(cancellable_.get());
        g_dbus_connection_signal_unsubscribe(connection_, responses_);
        if (watch_ != 0) {
            g_bus_unwatch_name(watch_);
        }
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    PortalAnswer wait() {
        while (!answer_) {
            g_main_context_iteration(nullptr, TRUE);
        }
        // The reply of a cancelled call still comes, and uses this object.
        g_cancellable_cancel(cancellable_.get());
        while (isCalling_) {
            g_main_context_iteration(nullptr, TRUE);
        }
        return *answer_;
    }

private:
    void subscribe();
    void call(const std::string& uri);
    void waitForResponse(GVariant* result);
    void settle();

    GDBusConnection* connection_;
    platform::GObjectHandle<GCancellable> cancellable_;
    PortalTimeouts timeouts_;
    guint responses_ = 0;
    guint watch_ = 0;
    platform::GSourceId timer_;
    bool isCalling_ = true;
    std::string handle_;                              ///< Empty until the call has returned.
    std::map<std::string, guint> responsesByHandle_;  ///< A response may come before the reply.
    std::optional<PortalAnswer> answer_;
};

/// The responses of all requests of this connection: older portals choose another handle than the
/// one that the token asks for.
void Request::subscribe() {
    const auto received = [](GDBusConnection*, const gchar*, const gchar* path, const gchar*,
                             const gchar*, GVariant* response, gpointer data) {
        auto* self = static_cast<Request*>(data);
        if (g_variant_is_of_type(response, G_VARIANT_TYPE("(ua{sv})")) != FALSE) {
            const GVariantHandle code(g_variant_get_child_value(response, 0));
            self->responsesByHandle_[path] = g_variant_get_uint32(code.get());
            self->settle();
        }
    };
    responses_ = g_dbus_connection_signal_subscribe(
        connection_, portal.name, requestInterface, "Response", nullptr, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE, received, this, nullptr);
}

void Request::call(const std::string& uri) {
    std::string token = "glintmark_" + randomUUIDString();  // others must not guess the handle
    std::replace(token.begin(), token.end(), '-', '_');
    GVariantBuilder options;
    g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread sets it
    if (const char* activation = std::getenv("XDG_ACTIVATION_TOKEN");
        activation != nullptr && g_utf8_validate(activation, -1, nullptr) != FALSE) {
        g_variant_builder_add(&options, "{sv}", "activation_token",
                              g_variant_new_string(activation));
    }
    constexpr auto noParentWindow = "";
    platform::callDBus(connection_, portal, "OpenURI",
                       g_variant_new("(ssa{sv})", noParentWindow, uri.c_str(), &options), "(o)",
                       static_cast<int>(timeouts_.call.count()), cancellable_.get(),
                       [this](GVariant* result, const GError* /*error*/) {
                           isCalling_ = false;
                           if (result == nullptr) {
                               answer_ = answer_.value_or(PortalAnswer::unavailable);
                           } else {
                               waitForResponse(result);
                           }
                       });
}

void Request::waitForResponse(GVariant* result) {
    const char* handle = nullptr;
    g_variant_get(result, "(&o)", &handle);
    handle_ = handle;
    const auto timeOut = [](gpointer data) -> gboolean {
        auto* self = static_cast<Request*>(data);
        self->timer_.forget();
        self->answer_ = self->answer_.value_or(PortalAnswer::opened);
        return G_SOURCE_REMOVE;
    };
    timer_ = platform::GSourceId(
        g_timeout_add(static_cast<guint>(timeouts_.answer.count()), timeOut, this));
    const auto vanished = [](GDBusConnection*, const gchar*, gpointer data) {
        auto* self = static_cast<Request*>(data);
        self->answer_ = self->answer_.value_or(PortalAnswer::unavailable);
    };
    watch_ = g_bus_watch_name_on_connection(connection_, portal.name, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                            nullptr, vanished, this, nullptr);
    settle();
}

void Request::settle() {
    const auto response = responsesByHandle_.find(handle_);
    if (answer_ || response == responsesByHandle_.end()) {
        return;
    }
    switch (response->second) {
        case responseSuccess:
            answer_ = PortalAnswer::opened;
            break;
        case responseCancelled:
            answer_ = PortalAnswer::cancelled;
            break;
        default:
            answer_ = PortalAnswer::unavailable;
    }
}

}  // namespace

PortalAnswer openThroughPortal(GDBusConnection* connection, const std::string& uri,
                               PortalTimeouts timeouts) {
    if (connection == nullptr) {
        return PortalAnswer::unavailable;
    }
    const auto owner = platform::shareGObject(connection);
    return Request(connection, uri, timeouts).wait();
}

}  // namespace glintmark::link
