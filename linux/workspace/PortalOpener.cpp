#include "linux/workspace/PortalOpener.h"

#include <fcntl.h>
#include <gio/gunixfdlist.h>

#include <memory>
#include <utility>

#include "base/system/FileDescriptor.h"
#include "linux/bus/PortalRequest.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

namespace {

constexpr auto interface = "org.freedesktop.portal.OpenURI";
constexpr int timeoutMilliseconds = 10'000;  // the bus may have to start the portal
constexpr auto noParentWindow = "";

/// One request, which lives until the portal has answered the call and responded.
class Opening {
public:
    Opening(GDBusConnection* connection, std::function<void(bool hasOpened)> ended)
        : request_(connection,
                   [this](PortalRequest::Outcome outcome, GVariant*) { respond(outcome); }),
          ended_(std::move(ended)) {}

    /// Owns this from now on.
    void start(GDBusConnection* connection, const std::string& uri,
               const std::string& activationToken);

private:
    GVariant* options(const std::string& activationToken) const;
    void answered(bool isAccepted);
    void respond(PortalRequest::Outcome outcome);
    void end(bool hasOpened);

    PortalRequest request_;
    std::function<void(bool)> ended_;
    bool isAnswered_ = false;   ///< The call: its reply must find this.
    bool isResponded_ = false;  ///< The request.
    bool hasOpened_ = false;
};

GVariant* Opening::options(const std::string& activationToken) const {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&builder, "{sv}", "handle_token",
                          g_variant_new_string(request_.token().c_str()));
    if (!activationToken.empty()) {
        g_variant_builder_add(&builder, "{sv}", "activation_token",
                              g_variant_new_string(activationToken.c_str()));
    }
    return g_variant_builder_end(&builder);
}

/// The portal refuses "file" URIs and takes a descriptor of the file instead.
void Opening::start(GDBusConnection* connection, const std::string& uri,
                    const std::string& activationToken) {
    const char* method = "OpenURI";
    GVariant* target = nullptr;
    GObjectHandle<GUnixFDList> descriptors;
    const GStringHandle path(g_filename_from_uri(uri.c_str(), nullptr, nullptr));
    if (path == nullptr) {
        target = g_variant_new_string(uri.c_str());
    } else {
        const FileDescriptor file(::open(path.get(), O_PATH | O_CLOEXEC));
        descriptors.reset(g_unix_fd_list_new());
        const int index = file ? g_unix_fd_list_append(descriptors.get(), file.get(), nullptr) : -1;
        if (index < 0) {
            end(false);
            return;
        }
        method = "OpenFile";
        target = g_variant_new_handle(index);
    }
    const auto answer = [](GObject* source, GAsyncResult* result, gpointer self) {
        const GVariantHandle reply(g_dbus_connection_call_with_unix_fd_list_finish(
            G_DBUS_CONNECTION(source), nullptr, result, nullptr));
        static_cast<Opening*>(self)->answered(reply != nullptr);
    };
    g_dbus_connection_call_with_unix_fd_list(
        connection, portalName, portalPath, interface, method,
        g_variant_new("(s@*@a{sv})", noParentWindow, target, options(activationToken)),
        G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, timeoutMilliseconds, descriptors.get(),
        nullptr, answer, this);
}

void Opening::answered(bool isAccepted) {
    isAnswered_ = true;
    if (isResponded_ || !isAccepted) {
        end(hasOpened_);
    } else {
        request_.watchPortal();
    }
}

void Opening::respond(PortalRequest::Outcome outcome) {
    isResponded_ = true;
    hasOpened_ = outcome != PortalRequest::Outcome::failed;
    if (isAnswered_) {
        end(hasOpened_);
    }
}

void Opening::end(bool hasOpened) {
    const std::unique_ptr<Opening> self(this);
    ended_(hasOpened);
}

}  // namespace

void openThroughPortal(GDBusConnection* connection, const std::string& uri,
                       const std::string& activationToken,
                       std::function<void(bool hasOpened)> ended) {
    auto opening = std::make_unique<Opening>(connection, std::move(ended));
    opening.release()->start(connection, uri, activationToken);
}

}  // namespace glintmark::platform
