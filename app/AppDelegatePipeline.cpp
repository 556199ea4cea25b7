#include <atomic>
#include <chrono>
#include <memory>
#include <utility>

#include "app/AppDelegate.h"
#include "app/L.h"
#include "base/graphics/Image.h"
#include "base/system/LinkFile.h"
#include "base/text/UUID.h"
#include "base/url/URL.h"
#include "favicon/FaviconFetcher.h"
#include "icon/IconApplier.h"
#include "platform/DispatchQueues.h"
#include "platform/FileIdentity.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/UserNotificationCenter.h"
#include "webloc/WeblocParser.h"

namespace glintmark {

using platform::services;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::nanoseconds processingDelay = 500ms;  // the writer may not be done yet

// Ordinary link files have a few hundred bytes. They never wait for large ones.
constexpr std::size_t maximumOrdinaryBytes = std::size_t{64} * 1024;

void logFailedFetch(const std::string& link) {
    services().log.write("Glintmark: Favicon fetch failed → " + link);
}

}  // namespace

void AppDelegate::handleFileEvent(const FileWatcherEvent& event) {
    if (!event.path.ends_with(linkFileSuffix)) {
        return;
    }
    services().log.write("Glintmark: webloc detected → " + event.path);
    services().urlSession.prepare();  // during the delay
    services()
        .dispatchQueues.global(platform::QualityOfService::userInitiated)
        .asyncAfter(processingDelay, [self = shared_from_this(), path = event.path] {
            self->processWeblocFile(path);
        });
}

void AppDelegate::processWeblocFile(const std::string& path) {
    const auto size = services().fileManager.fileSize(path);
    reads_.enter(
        [self = shared_from_this(), path](const AdmissionGate::Place&) { self->readLink(path); },
        size > maximumOrdinaryBytes ? size : 0);
}

void AppDelegate::readLink(const std::string& path) {
    ReadFile file{path, {}};
    const auto link = WeblocParser::extractURL(URL::fileURL(path), &file.identity);
    if (!link) {
        services().log.write("Glintmark: URL extraction failed → " + path);
        return;
    }
    services().log.write("Glintmark: URL → " + *link);
    // Set by the fetch's completion or by the end of its time, whichever comes first. The other one
    // is then ignored.
    const auto isEnded = std::make_shared<std::atomic_flag>();
    fetches_.enter(
        [self = shared_from_this(), link = *link, file, isEnded](
            const AdmissionGate::Place& place) { self->fetchIcon(link, file, place, isEnded); },
        1,
        [link = *link, isEnded] {
            if (!isEnded->test_and_set()) {
                logFailedFetch(link);
            }
        });
}

void AppDelegate::fetchIcon(const std::string& link, const ReadFile& file,
                            const AdmissionGate::Place& place,
                            const std::shared_ptr<std::atomic_flag>& isEnded) {
    FaviconFetcher::fetch(link, [self = shared_from_this(), link, file, place,
                                 isEnded](const std::shared_ptr<const Image>& image) {
        if (isEnded->test_and_set()) {
            return;
        }
        if (!image) {
            logFailedFetch(link);
            return;
        }
        services().log.write("Glintmark: Favicon fetched → " + link);
        // `prepared` runs here because a large image would block the main thread.
        services().dispatchQueues.main().async(
            [self, file, place, icon = IconApplier::prepared(image)] {
                self->applyIcon(icon, file);
            });
    });
}

void AppDelegate::applyIcon(std::shared_ptr<const platform::PreparedIcon> icon,
                            const ReadFile& file) {
    IconApplier::apply(std::move(icon), file.path, file.identity);
    // On purpose, the log line and the notification appear even if the icon could not be set.
    // `IconApplier` logs success or failure.
    services().log.write("Glintmark: Icon applied → " + file.path);
    showNotification(L("notification.iconApplied"), URL::fileURL(file.path).lastPathComponent());
}

void AppDelegate::showNotification(const std::string& title, const std::string& body) {
    services().userNotificationCenter.add(
        {randomUUIDString(), title, body}, [](const std::optional<std::string>& error) {
            if (error) {
                services().log.write("Glintmark: Notification error → " + *error);
            }
        });
}

}  // namespace glintmark
