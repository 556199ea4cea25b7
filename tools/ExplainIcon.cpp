// explain-icon [--json] LINK: runs one fetch through the program's own code and shows every
// request, every candidate and the winner. Exit status: 0 with an icon, 1 without, 2 for wrong use.
// Environment: the program's variables, and SSL_CERT_FILE, a file of certificate authorities to
// trust instead of the system's.
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "favicon/FaviconFetcher.h"
#include "linux/files/PosixFileManager.h"
#include "linux/images/SandboxedImageDecoder.h"
#include "linux/network/CurlURLSession.h"
#include "linux/process/ProgramEnvironment.h"
#include "linux/process/SyslogLog.h"
#include "linux/queues/LinuxDispatchQueues.h"
#include "platform/Configuration.h"
#include "platform/Platform.h"
#include "tools/AbsentDesktop.h"
#include "tools/FetchReport.h"

namespace glintmark::tools {

namespace {

/// The decoder that was built beside this program.
std::string decoderPath() { return platform::programFolder() + "/" + platform::imageDecoderName; }

platform::CurlURLSessionOptions sessionOptions() {
    platform::CurlURLSessionOptions options{.version = GLINTMARK_VERSION};
    // A proxy that decrypts https signs with its own authority.
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread sets it
    if (const char* const trusted = std::getenv("SSL_CERT_FILE")) {
        options.certificateFile = trusted;
    }
    return options;
}

/// Fetches for `url` with the program's own services, each called through a recorder.
FetchReport explained(const URL& url, const std::string& host) {
    AbsentDesktop desktop;
    const platform::Configuration settings{platform::faviconServiceAddress(), ""};
    platform::LinuxDispatchQueues queues;
    platform::PosixFileManager files;
    platform::SyslogLog log;
    platform::SandboxedImageDecoder decoder(
        decoderPath(), queues.global(platform::QualityOfService::userInitiated));
    platform::CurlURLSession session(queues.global(platform::QualityOfService::userInitiated),
                                     sessionOptions());
    FetchRecorder recorder(session, decoder);
    const platform::Services services{
        .application = desktop,
        .bundle = desktop,
        .configuration = settings,
        .dispatchQueues = queues,
        .eventStreams = desktop,
        .fileManager = files,
        .imageDecoder = recorder,
        .log = log,
        .openPanel = desktop,
        .statusBar = desktop,
        .timers = desktop,
        .urlSession = recorder,
        .userDefaults = desktop,
        .userNotificationCenter = desktop,
        .workspace = desktop,
    };
    const platform::ServicesScope scope(services);

    // Shared: the waiting thread may continue while the other thread is still in `set_value`.
    const auto found = std::make_shared<std::promise<std::vector<IconCandidate>>>();
    FaviconFetcher::collectCandidates(url, host, [found](std::vector<IconCandidate> candidates) {
        found->set_value(std::move(candidates));
    });
    auto candidates = found->get_future().get();
    return {recorder.requests(), std::move(candidates)};
}

int explain(const std::string& link, bool asLines) {
    const auto url = URL::parse(link);
    const bool hasHost = url && url->host();
    if (!hasHost) {
        std::fputs("No URL with a host, so the program sends no request.\n", stderr);
    }
    const FetchReport report = hasHost ? explained(*url, *url->host()) : FetchReport({}, {});
    const std::string text = asLines ? asJSONLines(report) : asTable(report);
    std::fwrite(text.data(), 1, text.size(), stdout);
    return report.winner ? 0 : 1;
}

}  // namespace

}  // namespace glintmark::tools

int main(int argc, char** argv) {
    const bool asLines = argc == 3 && std::string_view(argv[1]) == "--json";
    if (argc != 2 && !asLines) {
        std::fputs("usage: explain-icon [--json] LINK\n", stderr);
        return 2;
    }
    return glintmark::tools::explain(argv[argc - 1], asLines);
}
