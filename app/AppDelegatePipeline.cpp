#include <chrono>
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
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/UserNotificationCenter.h"
#include "webloc/WeblocParser.h"

namespace glintmark {

using platform::services;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::nanoseconds processingDelay = 500ms;  // the writer may not be done yet

}  // namespace

void AppDelegate::handleFileEvent(const FileWatcherEvent& event) {
    if (!event.path.ends_with(linkFileSuffix)) {
        return;
    }
    services().log.write("Glintmark: webloc detected → " + event.path);
    services()
        .dispatchQueues.global(platform::QualityOfService::userInitiated)
        .asyncAfter(processingDelay, [self = shared_from_this(), path = event.path] {
            self->processWeblocFile(path);
        });
}

void AppDelegate::processWeblocFile(const std::string& path) {
    platform::FileIdentity file;
    const auto link = WeblocParser::extractURL(URL::fileURL(path), &file);
    if (!link) {
        services().log.write("Glintmark: URL extraction failed → " + path);
        return;
    }
    services().log.write("Glintmark: URL → " + *link);
    fetches_.enter(
        [self = shared_from_this(), link = *link, path, file](const AdmissionGate::Place& place) {
            FaviconFetcher::fetch(
                link, [self, link, path, file, place](const std::shared_ptr<const Image>& image) {
                    if (!image) {
                        services().log.write("Glintmark: Favicon fetch failed → " + link);
                        return;
                    }
                    services().log.write("Glintmark: Favicon fetched → " + link);
                    // `prepared` runs here because a large image would block the main thread.
                    services().dispatchQueues.main().async(
                        [self, path, file, place, icon = IconApplier::prepared(image)] {
                            self->applyIcon(icon, path, file);
                        });
                });
        });
}

void AppDelegate::applyIcon(std::shared_ptr<const platform::PreparedIcon> icon,
                            const std::string& path, const platform::FileIdentity& file) {
    IconApplier::apply(std::move(icon), path, file);
    // On purpose, the log line and the notification appear even if the icon could not be set.
    // `IconApplier` logs success or failure.
    services().log.write("Glintmark: Icon applied → " + path);
    showNotification(L("notification.iconApplied"), URL::fileURL(path).lastPathComponent());
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
