#include "link/ExplainCommand.h"

#include <sysexits.h>

#include <cerrno>
#include <cstdio>
#include <future>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "favicon/FaviconFetcher.h"
#include "link/FetchPage.h"
#include "link/FetchReport.h"
#include "link/FileWriting.h"
#include "link/LinkFile.h"
#include "link/Paths.h"
#include "link/Texts.h"
#include "platform/FileManager.h"
#include "platform/Platform.h"

namespace glintmark::link {

namespace {

FetchReport fetched(const URL& url, const FetchRecorder& recorder) {
    // Shared: the waiting thread may continue while the other thread is still in `set_value`.
    const auto found = std::make_shared<std::promise<std::vector<IconCandidate>>>();
    FaviconFetcher::collectCandidates(url, *url.host(),
                                      [found](std::vector<IconCandidate> candidates) {
                                          found->set_value(std::move(candidates));
                                      });
    auto candidates = found->get_future().get();
    return {recorder.requests(), std::move(candidates)};
}

}  // namespace

int explainLink(const Command& command, const FetchRecorder& recorder,
                const std::function<void(const std::string& message)>& complain) {
    const std::string& argument = command.arguments.front();
    std::string link = argument;
    if (const std::string path = absolutePath(argument);
        !argument.empty() && platform::services().fileManager.fileExists(path)) {
        const LinkFileContents contents = readLinkFile(path);
        if (!contents.link) {
            complain(path + ": " + text(contents.wasRead ? "icon.noLink" : "icon.unreadable"));
            return contents.wasRead ? EX_DATAERR : EX_NOINPUT;
        }
        link = *contents.link;
    }
    // As it stands, since the resident program escapes nothing and asks for any scheme.
    const auto url = URL::parse(link);
    if (!url || !url->host()) {
        complain(link + ": " + text("error.noHost"));
        return EX_DATAERR;
    }
    const FetchReport report = fetched(*url, recorder);
    if (!command.htmlFile.empty()) {
        constexpr bool mayReplace = true;
        const std::string file = absolutePath(command.htmlFile);
        if (writeNewFile(file, asPage(report, link), mayReplace) != Written::done) {
            complain(file + ": " + std::generic_category().message(errno));
            return EX_CANTCREAT;
        }
    } else {
        const std::string shown = command.asJSON ? asJSONLines(report) : asTable(report);
        std::fwrite(shown.data(), 1, shown.size(), stdout);
    }
    return report.winner ? EX_OK : EX_UNAVAILABLE;
}

}  // namespace glintmark::link
