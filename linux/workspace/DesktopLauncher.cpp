#include "linux/workspace/DesktopLauncher.h"

#include "linux/bus/DBusCall.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

namespace {

constexpr DBusTarget fileManager{"org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
                                 "org.freedesktop.FileManager1"};
constexpr int fileManagerTimeoutMilliseconds = 10'000;  // it may have to be started first

bool launchByCommand(const std::string& uri) {
    std::string command = "xdg-open";
    std::string argument = uri;
    char* arguments[] = {command.data(), argument.data(), nullptr};
    constexpr auto flags = static_cast<GSpawnFlags>(
        G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL);
    return g_spawn_async(nullptr, arguments, nullptr, flags, nullptr, nullptr, nullptr, nullptr) !=
           FALSE;
}

GVariant* folderRequest(const std::string& uri) {
    GVariantBuilder folders;
    g_variant_builder_init(&folders, G_VARIANT_TYPE("as"));
    g_variant_builder_add(&folders, "s", uri.c_str());
    return g_variant_new("(ass)", &folders, "");
}

}  // namespace

bool launchDefault(const std::string& uri) {
    return g_app_info_launch_default_for_uri(uri.c_str(), nullptr, nullptr) != FALSE ||
           launchByCommand(uri);
}

bool showFolder(GDBusConnection* connection, const std::string& uri) {
    if (connection == nullptr) {
        return launchDefault(uri);
    }
    callDBus(connection, fileManager, "ShowFolders", folderRequest(uri), "()",
             fileManagerTimeoutMilliseconds, nullptr, [uri](GVariant* result, const GError*) {
                 if (result == nullptr) {
                     launchDefault(uri);
                 }
             });
    return true;
}

}  // namespace glintmark::platform
