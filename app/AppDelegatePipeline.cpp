#include <chrono>
#include <string_view>
#include <utility>

#include "app/AppDelegate.h"
#include "app/L.h"
#include "base/graphics/Image.h"
#include "base/text/UUID.h"
#include "base/url/URL.h"
#include "favicon/FaviconFetcher.h"
#include "icon/IconApplier.h"
#include "platform/DispatchQueues.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/UserNotificationCenter.h"
#include "webloc/WeblocParser.h"

namespace glintmark {

using platform::services;
using namespace std::chrono_literals;

namespace {

constexpr std::string_view weblocSuffix = ".webloc";
constexpr std::chrono::nanoseconds processingDelay = 500ms;  // the file may still be written

}  // namespace

void AppDelegate::handleFileEvent(const FileWatcherEvent& event) {
    if (!event.path.ends_with(weblocSuffix)) {
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
    const auto link = WeblocParser::extractURL(URL::fileURL(path));
    if (!link) {
        services().log.write("Glintmark: URL extraction failed → " + path);
        return;
    }
    services().log.write("Glintmark: URL → " + *link);
    fetches_.enter(
        [self = shared_from_this(), link = *link, path](const AdmissionGate::Place& place) {
            FaviconFetcher::fetch(
                link, [self, link, path, place](const std::shared_ptr<const Image>& image) {
                    if (!image) {
                        services().log.write("Glintmark: Favicon fetch failed → " + link);
                        return;
                    }
                    services().log.write("Glintmark: Favicon fetched → " + link);
                    // Here rather than on the main thread, which must not be held up by a large
                    // image.
                    services().dispatchQueues.main().async(
                        [self, path, place, image = IconApplier::prepared(image)] {
                            self->applyIcon(image, path);
                        });
                });
        });
}

void AppDelegate::applyIcon(const std::shared_ptr<const Image>& image, const std::string& path) {
    IconApplier::apply(image, path);
    // Written whether or not that succeeded: it says so itself, in a line of its own.
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
