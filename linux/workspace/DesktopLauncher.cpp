#include "linux/workspace/DesktopLauncher.h"

#include <memory>

#include "linux/bus/DBusCall.h"
#include "linux/glib/GLibHandles.h"
#include "linux/workspace/Command.h"
#include "linux/workspace/PortalOpener.h"

namespace glintmark::platform {

namespace {

constexpr DBusTarget fileManager{"org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
                                 "org.freedesktop.FileManager1"};
constexpr int fileManagerTimeoutMilliseconds = 10'000;  // it may have to be started first

GVariant* folderRequest(const std::string& uri) {
    GVariantBuilder folders;
    g_variant_builder_init(&folders, G_VARIANT_TYPE("as"));
    g_variant_builder_add(&folders, "s", uri.c_str());
    return g_variant_new("(ass)", &folders, "");
}

}  // namespace

bool launchDefault(const std::string& uri) {
    if (limitsChildren()) {
        return startServiceOf("xdg-open", uri);
    }
    return g_app_info_launch_default_for_uri(uri.c_str(), nullptr, nullptr) != FALSE ||
           startCommand("xdg-open", uri);
}

bool openAddress(GDBusConnection* connection, const std::string& uri) {
    if (connection == nullptr) {
        return launchDefault(uri);
    }
    constexpr auto noToken = "";
    openThroughPortal(connection, uri, noToken, [uri](bool hasOpened) {
        if (!hasOpened) {
            launchDefault(uri);
        }
    });
    return true;
}

bool showFolder(GDBusConnection* connection, const std::string& uri) {
    if (connection == nullptr) {
        return launchDefault(uri);
    }
    const std::shared_ptr<GDBusConnection> bus = shareGObject(connection);
    callDBus(connection, fileManager, "ShowFolders", folderRequest(uri), "()",
             fileManagerTimeoutMilliseconds, nullptr, [bus, uri](GVariant* result, const GError*) {
                 if (result == nullptr) {
                     openAddress(bus.get(), uri);
                 }
             });
    return true;
}

}  // namespace glintmark::platform
