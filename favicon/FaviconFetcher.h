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
#include "favicon/IconCandidate.h"
#include "favicon/IconEntry.h"
#include "favicon/IconSource.h"
#include "platform/URLSession.h"

namespace glintmark {

/// Finds the best icon that a site offers. Keeps no state; any thread. Other rooms call `fetch`
/// only; the rest is its parts.
///
/// Every completion is called exactly once, on any thread, and may be called before the operation
/// returns. Failures are silent: they end in a null image or an empty list.
class FaviconFetcher {
public:
    using IconSource = glintmark::IconSource;
    using IconCandidate = glintmark::IconCandidate;
    using IconEntry = glintmark::IconEntry;

    /// Receives an image, or null for none.
    using ImageCompletion = CandidateCollector::ImageCompletion;
    using CandidatesCompletion = CandidateCollector::CandidatesCompletion;

    FaviconFetcher() = delete;

    /// Finds the icon for `link` along all five paths at once and logs the choice. Completes before
    /// it returns when `link` is no URL with a host, otherwise on the global queue.
    static void fetch(const std::string& link, ImageCompletion completion);

    /// The five paths of one fetch: all that they brought back, in the order of arrival, on the
    /// global queue.
    static void collectCandidates(const URL& url, const std::string& host,
                                  CandidatesCompletion completion);

    /// The one to use: of those at least 48 points wide the one of highest score, else the one of
    /// highest score; the earliest of equals. Absent for an empty list.
    static std::optional<IconCandidate> pickBest(const std::vector<IconCandidate>& candidates);

    // The page's icon links (FaviconFetcherHTML.cpp)

    /// The images of the page's first six icon links, in the order of arrival.
    static void fetchAllFromHTML(const URL& url, CandidatesCompletion completion);

    /// The icon links in `html` (UTF-8), the first `limit` of them: plain icons first, then larger
    /// declared sizes, then as in the page. Takes time in proportion to the length of `html`.
    static std::vector<IconEntry> extractIconURLs(
        std::string_view html, const URL& baseURL,
        std::size_t limit = std::numeric_limits<std::size_t>::max());

    /// The absolute URL for an address as a page or manifest writes it; absent when it gives none.
    static std::optional<URL> resolveURL(std::string_view address, const URL& base);

    // The web app manifest (FaviconFetcherManifest.cpp)

    /// The image of the icon that the site's first usable manifest names.
    static void fetchFromManifest(const URL& url, ImageCompletion completion);

    struct ManifestIcon {
        URL url;            ///< Absolute.
        std::int64_t size;  ///< Width in pixels as declared, which may be negative.
    };

    /// The largest usable icon of the manifest `json` (its bytes) for the page at `pageURL`; absent
    /// when `json` is no manifest or has none.
    static std::optional<ManifestIcon> chooseManifestIcon(std::string_view json,
                                                          const URL& pageURL);

    // Single images (FaviconFetcherProbes.cpp)

    /// The image at `url`, when it is answered with status 200 and can be decoded.
    static void downloadImage(const URL& url, ImageCompletion completion);

    /// The first Apple touch icon at a fixed path that is at least 64 points wide.
    static void fetchAppleTouchIcon(const URL& url, ImageCompletion completion);

    /// What the favicon service has for `host`; `size` is the edge asked for, in pixels.
    static void fetchFromGoogleAPI(const std::string& host, int size, ImageCompletion completion);

    /// "/favicon.ico" at the site's root.
    static void fetchDirectFavicon(const URL& url, ImageCompletion completion);

private:
    static constexpr double preferredMinSize = 48;  ///< Width in points.

    /// A request for a page or an image: what a desktop browser would send.
    static platform::URLRequest browserRequest(const URL& url);

    /// Whether there is a body and the status is exactly 200, so neither 203 nor 206.
    static bool isOK(const platform::URLResult& result);

    /// `path` at the root of the page's site, without the page's port; absent when it forms no URL.
    static std::optional<URL> siteURL(const URL& page, std::string path);

    /// One try at a fixed address. Calls either `finish`, which ends the tries with its image or
    /// null, or `moveOn`, which starts the next try.
    using Attempt = std::function<void(const URL& address, ImageCompletion finish,
                                       std::function<void()> moveOn)>;

    /// Tries `paths` at the root of the page's site one after the other. Completes with null when
    /// the last try has moved on. `paths` must live forever.
    static void tryInTurn(const URL& page, std::span<const char* const> paths,
                          const Attempt& attempt, ImageCompletion completion);
};

}  // namespace glintmark
