#include "linux/bus/PortalRequest.h"

#include <algorithm>
#include <utility>

#include "base/text/UUID.h"

namespace glintmark::platform {

namespace {

constexpr auto requestInterface = "org.freedesktop.portal.Request";

/// Random, so that no other program can name the object in advance.
std::string randomToken() {
    std::string token = "glintmark_" + randomUUIDString();
    std::replace(token.begin(), token.end(), '-', '_');
    return token;
}

/// Computed as the portal does it.
std::string requestPath(GDBusConnection* connection, const std::string& token) {
    std::string sender = g_dbus_connection_get_unique_name(connection) + 1;  // without the colon
    std::replace(sender.begin(), sender.end(), '.', '_');
    return std::string(portalPath) + "/request/" + sender + "/" + token;
}

}  // namespace

PortalRequest::PortalRequest(GDBusConnection* connection, Response response)
    : connection_(shareGObject(connection)),
      response_(std::move(response)),
      token_(randomToken()),
      path_(requestPath(connection, token_)) {
    const auto receive = [](GDBusConnection*, const gchar*, const gchar*, const gchar*,
                            const gchar*, GVariant* arguments, gpointer self) {
        static_cast<PortalRequest*>(self)->received(arguments);
    };
    signal_ = g_dbus_connection_signal_subscribe(connection, portalName, requestInterface,
                                                 "Response", path_.c_str(), nullptr,
                                                 G_DBUS_SIGNAL_FLAGS_NONE, receive, this, nullptr);
}

PortalRequest::~PortalRequest() {
    if (watch_ != 0) {
        g_bus_unwatch_name(watch_);
    }
    g_dbus_connection_signal_unsubscribe(connection_.get(), signal_);
    if (response_) {
        g_dbus_connection_call(connection_.get(), portalName, path_.c_str(), requestInterface,
                               "Close", nullptr, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1,
                               nullptr, nullptr, nullptr);
    }
}

void PortalRequest::watchPortal() {
    const auto vanished = [](GDBusConnection*, const gchar*, gpointer self) {
        static_cast<PortalRequest*>(self)->finish(Outcome::failed, nullptr);
    };
    if (g_dbus_connection_is_closed(connection_.get()) != FALSE) {
        finish(Outcome::failed, nullptr);
    } else if (watch_ == 0) {
        watch_ = g_bus_watch_name_on_connection(connection_.get(), portalName,
                                                G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr, vanished,
                                                this, nullptr);
    }
}

void PortalRequest::received(GVariant* arguments) {
    if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(ua{sv})")) == FALSE) {
        finish(Outcome::failed, nullptr);
        return;
    }
    guint code = 0;
    GVariant* results = nullptr;
    g_variant_get(arguments, "(u@a{sv})", &code, &results);
    const GVariantHandle owner(results);
    const bool isKnown = code <= static_cast<guint>(Outcome::cancelledByUser);
    finish(isKnown ? static_cast<Outcome>(code) : Outcome::failed, results);
}

void PortalRequest::finish(Outcome outcome, GVariant* results) {
    if (!response_) {
        return;
    }
    const auto response = std::exchange(response_, nullptr);
    const GVariantHandle given(results != nullptr
                                   ? g_variant_ref(results)
                                   : g_variant_ref_sink(g_variant_new("a{sv}", nullptr)));
    response(outcome, given.get());
}

}  // namespace glintmark::platform
