#include <glib.h>
#include <sysexits.h>
#include <unistd.h>

#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/system/StandardDescriptors.h"
#include "base/text/UUID.h"
#include "link/AbsentDesktop.h"
#include "link/CommandLine.h"
#include "link/ExplainCommand.h"
#include "link/FetchRecorder.h"
#include "link/IconCommand.h"
#include "link/NewCommand.h"
#include "link/OpenCommand.h"
#include "link/Texts.h"
#include "linux/bundle/EmbeddedBundle.h"
#include "linux/bundle/UserLanguages.h"
#include "linux/bus/SessionBus.h"
#include "linux/files/PosixFileManager.h"
#include "linux/images/SandboxedImageDecoder.h"
#include "linux/network/CurlURLSession.h"
#include "linux/notifications/FreedesktopNotifications.h"
#include "linux/process/ProgramEnvironment.h"
#include "linux/process/SyslogLog.h"
#include "linux/queues/LinuxDispatchQueues.h"
#include "linux/workspace/DesktopLauncher.h"
#include "linux/workspace/DesktopWorkspace.h"
#include "linux/workspace/PortalOpener.h"
#include "platform/Configuration.h"
#include "platform/Platform.h"

namespace glintmark::link {

namespace {

constexpr std::chrono::milliseconds flushTimeout{2000};
constexpr guint notificationTimeoutMilliseconds = 5000;
constexpr guint portalTimeoutMilliseconds = 120'000;
constexpr int noDescriptor = -1;  // the log goes to the system log only

platform::CurlURLSessionOptions sessionOptions() {
    platform::CurlURLSessionOptions options{.version = GLINTMARK_VERSION};
    // A proxy that decrypts https signs with its own authority.
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread sets it
    if (const char* const trusted = std::getenv("SSL_CERT_FILE")) {
        options.certificateFile = trusted;
    }
    return options;
}

/// Of the launch that started this program, for the program that it starts; empty if it has none.
std::string activationToken() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread sets it
    const char* const token = std::getenv("XDG_ACTIVATION_TOKEN");
    return token != nullptr && g_utf8_validate(token, -1, nullptr) != FALSE ? token : "";
}

/// Runs the main loop until `isOver` is true. False if that takes longer than the time.
bool runUntil(const std::function<bool()>& isOver, guint milliseconds) {
    bool isLate = false;
    const auto timeOut = [](gpointer flag) -> gboolean {
        *static_cast<bool*>(flag) = true;
        return G_SOURCE_CONTINUE;
    };
    const platform::GSourceId timer(g_timeout_add(milliseconds, timeOut, &isLate));
    while (!isOver() && !isLate) {
        g_main_context_iteration(nullptr, TRUE);
    }
    return isOver();
}

/// The session bus and what needs it. It is connected when it is first used.
class Desktop {
public:
    explicit Desktop(DispatchQueue& helpers) : helpers_(helpers) {}

    platform::SessionBus& bus() { return bus_ ? *bus_ : bus_.emplace(); }

    platform::DesktopWorkspace& workspace() {
        return workspace_ ? *workspace_ : workspace_.emplace(bus(), helpers_);
    }

    bool open(const URL& url) {
        const std::string& uri = url.absoluteString();
        if (bus().connection() == nullptr) {
            return platform::launchDefault(uri);
        }
        const auto hasOpened = std::make_shared<std::optional<bool>>();
        platform::openThroughPortal(bus().connection(), uri, activationToken(),
                                    [hasOpened](bool opened) { *hasOpened = opened; });
        // The portal may ask the user which program to use. A request that it keeps counts as
        // opened: a second try might open the address twice.
        return !runUntil([&] { return hasOpened->has_value(); }, portalTimeoutMilliseconds) ||
               **hasOpened || platform::launchDefault(uri);
    }

    /// Posts a notification and waits until it is accepted or rejected.
    void notify(const std::string& title, const std::string& body) {
        platform::FreedesktopNotifications notifications(bus(), "glintmark");
        bool isOver = false;
        notifications.add({randomUUIDString(), title, body},
                          [&isOver](const std::optional<std::string>&) { isOver = true; });
        runUntil([&] { return isOver; }, notificationTimeoutMilliseconds);
    }

    void flush() const {
        if (bus_) {
            bus_->flush(flushTimeout);
        }
    }

private:
    DispatchQueue& helpers_;
    std::optional<platform::SessionBus> bus_;
    std::optional<platform::DesktopWorkspace> workspace_;
};

/// Every service that a command may use, each declared after those that it uses.
struct LinkPlatform {
    AbsentDesktop absent;
    platform::Configuration configuration{platform::faviconServiceAddress(), ""};
    platform::EmbeddedBundle bundle{
        platform::userLanguages(platform::LanguageSettings::fromEnvironment()), embeddedTexts()};
    platform::SyslogLog log{noDescriptor};
    platform::PosixFileManager fileManager;
    platform::LinuxDispatchQueues dispatchQueues{&log};
    platform::CurlURLSession urlSession{
        dispatchQueues.global(platform::QualityOfService::userInitiated), sessionOptions()};
    platform::SandboxedImageDecoder imageDecoder{
        platform::imageDecoderPath(GLINTMARK_LIBEXEC_FROM_PROGRAM), urlSession};

    platform::Services services(platform::Workspace& workspace, platform::URLSession& session,
                                platform::ImageDecoder& decoder) {
        return {
            .application = absent,
            .bundle = bundle,
            .configuration = configuration,
            .dispatchQueues = dispatchQueues,
            .eventStreams = absent,
            .fileManager = fileManager,
            .imageDecoder = decoder,
            .log = log,
            .openPanel = absent,
            .statusBar = absent,
            .timers = absent,
            .urlSession = session,
            .userDefaults = absent,
            .userNotificationCenter = absent,
            .workspace = workspace,
        };
    }
};

/// Tells the user why something was not done: on standard error and, if nobody may see that, by a
/// notification.
std::function<void(const std::string&)> complaints(Desktop& desktop) {
    return [&desktop](const std::string& message) {
        complain(message);
        if (::isatty(STDERR_FILENO) == 0) {
            desktop.notify("Glintmark", printable(message));
        }
    };
}

int run(const Command& command, LinkPlatform& linkPlatform, Desktop& desktop) {
    const bool needsWorkspace = command.verb == Command::Verb::icon;
    platform::Workspace& workspace = needsWorkspace
                                         ? static_cast<platform::Workspace&>(desktop.workspace())
                                         : linkPlatform.absent;
    FetchRecorder recorder(linkPlatform.urlSession, linkPlatform.imageDecoder);
    const bool isRecorded = command.verb == Command::Verb::explain;
    const auto services = isRecorded ? linkPlatform.services(workspace, recorder, recorder)
                                     : linkPlatform.services(workspace, linkPlatform.urlSession,
                                                             linkPlatform.imageDecoder);
    const platform::ServicesScope scope(services);
    switch (command.verb) {
        case Command::Verb::open:
            return openLinks(
                command.arguments, [&desktop](const URL& url) { return desktop.open(url); },
                complaints(desktop));
        case Command::Verb::icon:
            return setIcons(command, desktop.workspace(), [&](const std::string& summary) {
                if (command.isNotifying) {
                    desktop.notify("Glintmark", summary);
                }
            });
        case Command::Verb::explain:
            return explainLink(command, recorder, complain);
        case Command::Verb::create:
            return createLinkFiles(command, command.onDesktop ? complaints(desktop) : complain);
    }
    return EX_SOFTWARE;
}

/// Reads the command line. Absent if `status` is already clear.
std::optional<Command> readCommand(const std::vector<std::string>& arguments,
                                   LinkPlatform& linkPlatform, Desktop& desktop, int& status) {
    const auto services = linkPlatform.services(linkPlatform.absent, linkPlatform.urlSession,
                                                linkPlatform.imageDecoder);
    const platform::ServicesScope scope(services);
    auto line = parseCommandLine(arguments, GLINTMARK_VERSION);
    if (line.output) {
        std::fputs(line.output->c_str(), stdout);
        status = EX_OK;
    } else if (line.error) {
        const bool isDrop = !line.command && arguments.size() > 1 && arguments[1] == "--desktop";
        (isDrop ? complaints(desktop) : complain)(*line.error);
        status = EX_USAGE;
    }
    return std::move(line.command);
}

}  // namespace

}  // namespace glintmark::link

int main(int argc, char** argv) {
    using namespace glintmark;
    openStandardDescriptors();
    platform::limitAllocator();
    platform::correctFoldersInEnvironment();
    // GLib's own texts about options. Numbers stay as programs write them.
    std::setlocale(LC_CTYPE, "");     // NOLINT(concurrency-mt-unsafe): no other thread runs yet
    std::setlocale(LC_MESSAGES, "");  // NOLINT(concurrency-mt-unsafe)
    link::LinkPlatform linkPlatform;
    link::Desktop desktop(
        linkPlatform.dispatchQueues.global(platform::QualityOfService::userInitiated));
    int status = EX_OK;
    if (const auto command =
            link::readCommand({argv + 1, argv + argc}, linkPlatform, desktop, status)) {
        status = link::run(*command, linkPlatform, desktop);
    }
    // Destructors would wait for running fetches and decodes, whose results are not needed any
    // more.
    desktop.flush();
    if (std::fflush(stdout) != 0 && status == EX_OK) {
        status = EX_IOERR;
    }
    std::_Exit(status);
}
