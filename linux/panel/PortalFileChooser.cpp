#include "linux/panel/PortalFileChooser.h"

#include <algorithm>
#include <utility>

#include "linux/bus/DBusCall.h"
#include "linux/bus/DBusText.h"

// org.freedesktop.portal.FileChooser and .Request of the XDG desktop portal's documentation.

namespace glintmark::platform {

namespace {

constexpr DBusTarget fileChooser{portalName, portalPath, "org.freedesktop.portal.FileChooser"};
constexpr guint minimumVersion = 3;          // the first that can choose folders
constexpr int timeoutMilliseconds = 60'000;  // the bus may have to start the portal and its backend

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

PortalFileChooser::~PortalFileChooser() { g_cancellable_cancel(cancellable_.get()); }

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
    request_.emplace(connection_.get(), [this](PortalRequest::Outcome outcome, GVariant* results) {
        respond(outcome, results);
    });
    GVariantBuilder options;
    g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
    const auto add = [&options](const char* name, GVariant* value) {
        g_variant_builder_add(&options, "{sv}", name, value);
    };
    add("handle_token", g_variant_new_string(request_->token().c_str()));
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
                request_->watchPortal();
            }
        });
}

void PortalFileChooser::respond(PortalRequest::Outcome outcome, GVariant* results) {
    if (outcome == PortalRequest::Outcome::done) {
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
