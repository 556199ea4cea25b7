#include <glib.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "app/AppDelegate.h"
#include "platform/Configuration.h"
#include "platform/Platform.h"
#include "platform/linux/CurlURLSession.h"
#include "platform/linux/DesktopWorkspace.h"
#include "platform/linux/EmbeddedBundle.h"
#include "platform/linux/FileTypeRegistration.h"
#include "platform/linux/FreedesktopNotifications.h"
#include "platform/linux/GLibApplication.h"
#include "platform/linux/GLibTimers.h"
#include "platform/linux/InotifyEventStreamFactory.h"
#include "platform/linux/JSONFileUserDefaults.h"
#include "platform/linux/LinuxDispatchQueues.h"
#include "platform/linux/MainLoops.h"
#include "platform/linux/PortalOpenPanel.h"
#include "platform/linux/PosixFileManager.h"
#include "platform/linux/SandboxedImageDecoder.h"
#include "platform/linux/SessionBus.h"
#include "platform/linux/StatusNotifierItem.h"
#include "platform/linux/SyslogLog.h"
#include "platform/linux/UserLanguages.h"

namespace glintmark {

namespace {

constexpr auto defaultFaviconServiceAddress = "https://www.google.com";
constexpr auto decoderName = "glintmark-image-decoder";

std::string faviconServiceAddress() {
    const char* address = std::getenv("GLINTMARK_FAVICON_SERVICE");
    return address != nullptr ? address : defaultFaviconServiceAddress;
}

/// The folder that the running program lies in.
std::string programFolder() {
    char path[PATH_MAX];
    const auto length = readlink("/proc/self/exe", path, sizeof path);
    const std::string program(path, length > 0 ? static_cast<std::size_t>(length) : 0);
    return program.substr(0, program.rfind('/'));
}

/// The decoder beside a program that was just built, else the installed one.
std::string decoderPath() {
    auto beside = programFolder() + "/" + decoderName;
    return access(beside.c_str(), X_OK) == 0
               ? beside
               : std::string(GLINTMARK_LIBEXEC_FOLDER) + "/" + decoderName;
}

/// Every Linux service, each after those that it uses.
struct LinuxPlatform {
    explicit LinuxPlatform(platform::SessionBus& sessionBus) : bus(sessionBus) {}

    platform::SessionBus& bus;
    platform::Configuration configuration{faviconServiceAddress(), GLINTMARK_PRODUCT_PAGE};
    platform::EmbeddedBundle bundle{
        platform::userLanguages(platform::LanguageSettings::fromEnvironment())};
    platform::SyslogLog log;
    platform::PosixFileManager fileManager;
    platform::JSONFileUserDefaults userDefaults{std::string(g_get_user_config_dir()) +
                                                "/glintmark/defaults.json"};
    platform::MainLoops loops;
    platform::GLibApplication application{loops};
    platform::GLibTimers timers;
    platform::LinuxDispatchQueues dispatchQueues;
    platform::InotifyEventStreamFactory eventStreams{log};
    platform::SandboxedImageDecoder imageDecoder{decoderPath()};
    platform::CurlURLSession urlSession{
        dispatchQueues.global(platform::QualityOfService::userInitiated),
        {.version = GLINTMARK_VERSION}};
    platform::StatusNotifierBar statusBar{bus};
    platform::PortalOpenPanel openPanel{bus, loops};
    platform::FreedesktopNotifications notifications{bus};
    platform::DesktopWorkspace workspace{bus};

    platform::Services services{application,  bundle,        configuration, dispatchQueues,
                                eventStreams, fileManager,   imageDecoder,  log,
                                openPanel,    statusBar,     timers,        urlSession,
                                userDefaults, notifications, workspace};
};

platform::Application* application = nullptr;
std::shared_ptr<AppDelegate> delegate;

void run(platform::Application& sharedApplication) {
    application = &sharedApplication;
    application->setActivationPolicy(platform::ActivationPolicy::accessory);
    delegate = std::make_shared<AppDelegate>();
    application->setDelegate(*delegate);
    application->run();
}

}  // namespace

}  // namespace glintmark

int main() {
    using namespace glintmark;
    platform::SessionBus bus;
    if (bus.acquireName() == platform::NameOwnership::takenByAnother) {
        std::fputs("Glintmark is running already.\n", stderr);
        return 0;
    }
    LinuxPlatform linuxPlatform(bus);
    const platform::ServicesScope scope(linuxPlatform.services);
    platform::registerFileTypeOfBuildTree(programFolder(), g_get_user_data_dir());
    run(linuxPlatform.application);

    // Fetches and decodes that are under way would be waited for; what they hold is worth nothing
    // any more, and all that is kept was written when it changed.
    delegate->setStatusItem(nullptr);
    std::_Exit(0);
}
