#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/graphics/Image.h"
#include "base/url/URL.h"
#include "favicon/CandidateCollector.h"
#include "favicon/FetchContext.h"
#include "favicon/IconCandidate.h"
#include "favicon/IconEntry.h"
#include "favicon/IconSource.h"
#include "platform/URLSession.h"

namespace glintmark {

/// Finds the best icon that a site offers. Keeps no state; any thread. Other rooms call only
/// `fetch`; the other operations are its parts.
///
/// Every completion is called exactly once, on any thread, possibly before the operation returns.
/// Failures are silent: the result is a null image or an empty list.
class FaviconFetcher {
public:
    using IconSource = glintmark::IconSource;
    using IconCandidate = glintmark::IconCandidate;
    using IconEntry = glintmark::IconEntry;

    /// Receives an image, or null for none.
    using ImageCompletion = CandidateCollector::ImageCompletion;
    using CandidatesCompletion = CandidateCollector::CandidatesCompletion;

    FaviconFetcher() = delete;

    /// Finds the icon for `link` along all five paths at once and logs the choice. If `link` is not
    /// a URL with a host, completes before it returns; otherwise completes on the global queue.
    static void fetch(const std::string& link, ImageCompletion completion);

    /// Starts the five paths. Completes on the global queue, when all have ended, with everything
    /// that they found, in the order of arrival.
    static void collectCandidates(const URL& url, const std::string& host,
                                  CandidatesCompletion completion);

    /// The candidate with the highest score among those at least 48 points wide, or among all if
    /// none is that wide. Of equal scores the earliest wins. Absent for an empty list.
    static std::optional<IconCandidate> pickBest(const std::vector<IconCandidate>& candidates);

    // Path 1: the page's icon links (FaviconFetcherHTML.cpp)

    /// The images of the page's first six icon links, in the order of arrival.
    static void fetchAllFromHTML(const FetchContext& context, const URL& url,
                                 CandidatesCompletion completion);

    /// The first `limit` icon links of `html` (UTF-8) in this order: plain icons before Apple touch
    /// icons, larger declared sizes before smaller ones, then the page's order. Takes time in
    /// proportion to the length of `html`.
    static std::vector<IconEntry> extractIconURLs(
        std::string_view html, const URL& baseURL,
        std::size_t limit = std::numeric_limits<std::size_t>::max());

    /// The absolute URL of an address in a page or manifest. Absent if it makes no URL.
    static std::optional<URL> resolveURL(std::string_view address, const URL& base);

    // Path 2: the Apple touch icons at fixed addresses (FaviconFetcherProbes.cpp)

    /// The first of these icons that is at least 64 points wide.
    static void fetchAppleTouchIcon(const FetchContext& context, const URL& url,
                                    ImageCompletion completion);

    // Path 3: the web app manifest (FaviconFetcherManifest.cpp)

    /// The largest icon of the site's first manifest that has a usable one.
    static void fetchFromManifest(const FetchContext& context, const URL& url,
                                  ImageCompletion completion);

    struct ManifestIcon {
        URL url;            ///< Absolute.
        std::int64_t size;  ///< The declared width in pixels, which may be negative.
    };

    /// The largest usable icon of a manifest for the page at `pageURL`. `json` is the manifest's
    /// bytes. Absent if they are not a manifest or it has no usable icon.
    static std::optional<ManifestIcon> chooseManifestIcon(std::string_view json,
                                                          const URL& pageURL);

    // Path 4: the favicon service (FaviconFetcherProbes.cpp)

    /// The service's icon for `host`. `size` is the requested edge in pixels.
    static void fetchFromGoogleAPI(const FetchContext& context, const std::string& host, int size,
                                   ImageCompletion completion);

    // Path 5: "/favicon.ico" at the site's root (FaviconFetcherProbes.cpp)

    static void fetchDirectFavicon(const FetchContext& context, const URL& url,
                                   ImageCompletion completion);

    // Shared by the paths (FaviconFetcherProbes.cpp)

    /// The image at `url`. Null unless the status is 200 and the body can be decoded. If an answer
    /// named the URL, `namedFrom` is that answer's address space.
    static void downloadImage(const FetchContext& context, const URL& url,
                              ImageCompletion completion,
                              std::optional<platform::AddressSpace> namedFrom = std::nullopt);

private:
    /// A request for a page or an image, with the headers of a desktop browser.
    static platform::URLRequest browserRequest(const FetchContext& context, const URL& url);

    /// True if there is a body and the status is exactly 200. Statuses 203 and 206 do not count.
    static bool isOK(const platform::URLResult& result);

    /// `path` at the root of the page's site, without the page's port. Absent if that is no URL.
    static std::optional<URL> siteURL(const URL& page, std::string path);

    /// One try at a fixed address. Calls exactly one of the two: `finish`, which ends the search
    /// with an image or null, or `moveOn`, which tries the next address.
    using Attempt = std::function<void(const URL& address, ImageCompletion finish,
                                       std::function<void()> moveOn)>;

    /// Tries `paths` at the root of the page's site one after the other. Completes with null when
    /// the last attempt calls `moveOn`. `paths` must outlive the search.
    static void tryInTurn(const URL& page, std::span<const char* const> paths,
                          const Attempt& attempt, ImageCompletion completion);
};

}  // namespace glintmark
