#include <glib.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "app/AppDelegate.h"
#include "app/RunApplication.h"
#include "base/system/StandardDescriptors.h"
#include "linux/bundle/EmbeddedBundle.h"
#include "linux/bundle/UserLanguages.h"
#include "linux/bus/SessionBus.h"
#include "linux/files/FileURI.h"
#include "linux/files/JSONFileUserDefaults.h"
#include "linux/files/PosixFileManager.h"
#include "linux/images/SandboxedImageDecoder.h"
#include "linux/network/CurlURLSession.h"
#include "linux/notifications/FreedesktopNotifications.h"
#include "linux/notifications/RunningNotification.h"
#include "linux/panel/PortalOpenPanel.h"
#include "linux/process/DesktopApplication.h"
#include "linux/process/GLibApplication.h"
#include "linux/process/ProgramEnvironment.h"
#include "linux/process/StartNotice.h"
#include "linux/process/SyslogLog.h"
#include "linux/queues/GLibTimers.h"
#include "linux/queues/LinuxDispatchQueues.h"
#include "linux/queues/MainLoops.h"
#include "linux/statusitem/StatusNotifierItem.h"
#include "linux/watching/InotifyEventStream.h"
#include "linux/workspace/DesktopWorkspace.h"
#include "linux/workspace/FileTypeRegistration.h"
#include "platform/Configuration.h"
#include "platform/Platform.h"

namespace glintmark {

namespace {

constexpr std::chrono::milliseconds flushTimeout{200};  // for a bus that accepts no data

/// A file URI in a build tree, else the name of the installed icon.
std::string notificationIcon() {
    const auto built = platform::programFolder() + "/site/glintmark.svg";
    return access(built.c_str(), R_OK) == 0 ? platform::glibFileURI(built) : "glintmark";
}

/// The address that the build was configured with, else the URI of the page in the build tree or
/// of the installed page.
std::string productPageAddress() {
    std::string address = GLINTMARK_PRODUCT_PAGE;
    if (!address.empty()) {
        return address;
    }
    const auto folder = platform::programFolder();
    const auto built = folder + "/site/index.html";
    return platform::glibFileURI(
        access(built.c_str(), R_OK) == 0 ? built : folder + "/" + GLINTMARK_PAGE_FROM_PROGRAM);
}

/// Every Linux service, each declared after those that it uses.
struct LinuxPlatform {
    LinuxPlatform(platform::MainLoops& mainLoops, platform::GLibApplication& self,
                  platform::SessionBus& sessionBus)
        : loops(mainLoops), application(self), bus(sessionBus) {
        statusBar.setActivationHandler([this] { showThatItRuns(); });
    }

    void addFolder() const { application.delegate()->addFolder(); }
    void quit() const { application.delegate()->quit(); }

    void showThatItRuns() {
        using Desktop = platform::DesktopApplication;
        runningNotification.post(
            bundle.localizedString("menu.watching"),
            {{Desktop::addFolderAction, bundle.localizedString("menu.addFolder"),
              [this] { addFolder(); }},
             {Desktop::quitAction, bundle.localizedString("menu.quit"), [this] { quit(); }}});
    }

    /// What the desktop's launcher and a second start may ask for.
    platform::DesktopApplication::Handlers desktopHandlers() {
        using Desktop = platform::DesktopApplication;
        return {.started = [this](Desktop::Start start) { startNotice.started(start); },
                .actions = {{Desktop::addFolderAction, [this] { addFolder(); }},
                            {Desktop::quitAction, [this] { quit(); }}}};
    }

    platform::MainLoops& loops;
    platform::GLibApplication& application;
    platform::SessionBus& bus;
    platform::Configuration configuration{platform::faviconServiceAddress(), productPageAddress()};
    platform::EmbeddedBundle bundle{
        platform::userLanguages(platform::LanguageSettings::fromEnvironment())};
    platform::SyslogLog log;
    platform::PosixFileManager fileManager;
    platform::JSONFileUserDefaults userDefaults{
        std::string(g_get_user_config_dir()) + "/glintmark/defaults.json", &log};
    platform::GLibTimers timers;
    platform::LinuxDispatchQueues dispatchQueues{&log};
    platform::InotifyEventStreamFactory eventStreams{log};
    platform::CurlURLSession urlSession{
        dispatchQueues.global(platform::QualityOfService::userInitiated),
        {.version = GLINTMARK_VERSION, .log = &log}};
    platform::SandboxedImageDecoder imageDecoder{
        platform::imageDecoderPath(GLINTMARK_LIBEXEC_FROM_PROGRAM),
        urlSession,
        {.logDebug = [this](std::string_view line) { log.debug(line); }}};
    platform::StatusNotifierBar statusBar{bus};
    platform::PortalOpenPanel openPanel{bus, loops};
    platform::FreedesktopNotifications notifications{bus, notificationIcon()};
    platform::RunningNotification runningNotification{bus, notificationIcon()};
    platform::StartNotice startNotice{
        [this](std::function<void(bool)> answer) { statusBar.askIfShown(std::move(answer)); },
        [this] { showThatItRuns(); }};
    platform::DesktopWorkspace workspace{
        bus, dispatchQueues.global(platform::QualityOfService::userInitiated)};

    platform::Services services{
        .application = application,
        .bundle = bundle,
        .configuration = configuration,
        .dispatchQueues = dispatchQueues,
        .eventStreams = eventStreams,
        .fileManager = fileManager,
        .imageDecoder = imageDecoder,
        .log = log,
        .openPanel = openPanel,
        .statusBar = statusBar,
        .timers = timers,
        .urlSession = urlSession,
        .userDefaults = userDefaults,
        .userNotificationCenter = notifications,
        .workspace = workspace,
    };
};

void reportRunningInstance() { std::fputs("Glintmark is running already.\n", stderr); }

/// Quits as for a termination signal from outside.
void quitBecauseOf(platform::SessionBus::End reason) {
    if (reason == platform::SessionBus::End::nameIsTaken) {
        reportRunningInstance();
    }
    std::raise(SIGTERM);
}

}  // namespace

}  // namespace glintmark

int main() {
    using namespace glintmark;
    openStandardDescriptors();
    platform::limitAllocator();
    platform::correctFoldersInEnvironment();
    platform::MainLoops loops;
    platform::GLibApplication process(loops);  // first: from here on, signals exit with status 0
    platform::SessionBus bus;
    platform::DesktopApplication desktopApplication(bus);
    if (bus.acquireName() == platform::NameOwnership::takenByAnother) {
        reportRunningInstance();
        platform::DesktopApplication::reportSecondStart(bus.connection());
        bus.flush(flushTimeout);
        return 0;
    }
    bus.setEndHandler(quitBecauseOf);
    LinuxPlatform linuxPlatform(loops, process, bus);
    desktopApplication.setHandlers(linuxPlatform.desktopHandlers());
    const platform::ServicesScope scope(linuxPlatform.services);
    platform::registerFileTypeOfBuildTree(platform::programFolder(), g_get_user_data_dir());
    const auto delegate = runApplication(process);

    // Destructors would wait for running fetches and decodes, whose results are not needed any
    // more. Nothing needs saving: persistent data is written when it changes.
    delegate->setStatusItem(nullptr);
    linuxPlatform.runningNotification.withdraw();
    platform::removeThumbnailerOfBuildTree(platform::programFolder(), g_get_user_data_dir());
    bus.flush(flushTimeout);
    std::_Exit(0);
}
