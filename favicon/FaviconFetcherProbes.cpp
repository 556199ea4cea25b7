#include <array>
#include <chrono>
#include <utility>

#include "base/url/URLComponents.h"
#include "favicon/FaviconFetcher.h"
#include "platform/Configuration.h"
#include "platform/ImageDecoder.h"
#include "platform/Platform.h"

namespace glintmark {

using platform::services;

namespace {

constexpr std::chrono::seconds browserTimeout{10};
constexpr const char* browserUserAgent =
    "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 (KHTML, like Gecko) "
    "Version/17.0 Safari/605.1.15";
constexpr int statusOK = 200;

constexpr std::array appleTouchIconPaths{"/apple-touch-icon.png",
                                         "/apple-touch-icon-precomposed.png"};
constexpr double minimumAppleTouchIconWidth = 64;  // points

constexpr const char* defaultScheme = "https";

}  // namespace

platform::URLRequest FaviconFetcher::browserRequest(const FetchContext& context, const URL& url) {
    platform::URLRequest request(url);
    request.group = context.requests;
    request.timeoutInterval = browserTimeout;
    request.setValue(browserUserAgent, "User-Agent");
    return request;
}

bool FaviconFetcher::isOK(const platform::URLResult& result) {
    return result.body && result.response && result.response->statusCode == statusOK;
}

std::optional<URL> FaviconFetcher::siteURL(const URL& page, std::string path) {
    return URLComponents{page.scheme().value_or(defaultScheme), page.host(), std::move(path)}.url();
}

void FaviconFetcher::downloadImage(const FetchContext& context, const URL& url,
                                   ImageCompletion completion,
                                   std::optional<platform::AddressSpace> namedFrom) {
    platform::URLRequest request = browserRequest(context, url);
    request.namedFrom = namedFrom;
    request.isQuickToComplete = true;
    services().urlSession.startDataTask(
        std::move(request),
        [images = context.images, completion = std::move(completion)](platform::URLResult result) {
            if (!isOK(result) || result.body->empty()) {
                completion(nullptr);
                return;
            }
            services().imageDecoder.decode(std::move(*result.body), images, completion);
        });
}

void FaviconFetcher::tryInTurn(const URL& page, std::span<const char* const> paths,
                               const Attempt& attempt, ImageCompletion completion) {
    if (paths.empty()) {
        completion(nullptr);
        return;
    }
    const auto moveOn = [=] { tryInTurn(page, paths.subspan(1), attempt, completion); };
    if (const auto address = siteURL(page, paths.front())) {
        attempt(*address, std::move(completion), moveOn);
    } else {
        moveOn();
    }
}

void FaviconFetcher::fetchAppleTouchIcon(const FetchContext& context, const URL& url,
                                         ImageCompletion completion) {
    const Attempt attempt = [context](const URL& address, ImageCompletion finish,
                                      std::function<void()> moveOn) {
        downloadImage(context, address,
                      [finish = std::move(finish),
                       moveOn = std::move(moveOn)](std::shared_ptr<const Image> image) {
                          if (image && image->size().width >= minimumAppleTouchIconWidth) {
                              finish(std::move(image));
                          } else {
                              moveOn();
                          }
                      });
    };
    tryInTurn(url, appleTouchIconPaths, attempt, std::move(completion));
}

void FaviconFetcher::fetchFromGoogleAPI(const FetchContext& context, const std::string& host,
                                        int size, ImageCompletion completion) {
    const std::string& service = services().configuration.faviconServiceAddress;
    // An empty address turns the service off.
    const auto url =
        service.empty()
            ? std::nullopt
            : URL::parse(service + "/s2/favicons?domain=" + host + "&sz=" + std::to_string(size));
    if (!url) {
        completion(nullptr);
        return;
    }
    downloadImage(context, *url, std::move(completion));
}

void FaviconFetcher::fetchDirectFavicon(const FetchContext& context, const URL& url,
                                        ImageCompletion completion) {
    const auto iconURL = siteURL(url, "/favicon.ico");
    if (!iconURL) {
        completion(nullptr);
        return;
    }
    downloadImage(context, *iconURL, std::move(completion));
}

}  // namespace glintmark
