#include "favicon/FaviconFetcher.h"

#include <utility>

#include "base/graphics/Geometry.h"
#include "platform/ImageDecoder.h"
#include "platform/Log.h"
#include "platform/Platform.h"

namespace glintmark {

using platform::services;

namespace {

constexpr int faviconServiceSize = 256;       // pixels
constexpr double minimumPreferredWidth = 48;  // points

void logChoice(const IconCandidate& best) {
    const Size size = best.image->size();
    services().log.write("Glintmark: 採用 → " + std::string(caseName(best.source)) + " (" +
                         std::to_string(truncatedToInt(size.width)) + "x" +
                         std::to_string(truncatedToInt(size.height)) +
                         ", 透明: " + (best.hasTransparency ? "true" : "false") + ")");
}

/// The candidate with the highest score among those that `qualifies` accepts; the earliest of equal
/// scores. Null if it accepts none.
template <typename Predicate>
const IconCandidate* highestScore(const std::vector<IconCandidate>& candidates,
                                  Predicate qualifies) {
    const IconCandidate* best = nullptr;
    for (const IconCandidate& candidate : candidates) {
        if (qualifies(candidate) && (best == nullptr || candidate.score() > best->score())) {
            best = &candidate;
        }
    }
    return best;
}

}  // namespace

FetchContext FetchContext::make(const std::string& host) {
    return {services().urlSession.makeTaskGroup(host), services().imageDecoder.makeBatch()};
}

void FaviconFetcher::fetch(const std::string& link, ImageCompletion completion) {
    const auto url = URL::parse(link);
    if (!url || !url->host()) {
        completion(nullptr);
        return;
    }
    collectCandidates(
        *url, *url->host(),
        [completion = std::move(completion)](const std::vector<IconCandidate>& candidates) {
            const auto best = pickBest(candidates);
            if (best) {
                logChoice(*best);
            }
            completion(best ? best->image : nullptr);
        });
}

void FaviconFetcher::collectCandidates(const URL& url, const std::string& host,
                                       CandidatesCompletion completion) {
    const FetchContext context = FetchContext::make(host);
    const CandidateCollector collector;
    fetchAllFromHTML(context, url, collector.awaitCandidates());
    fetchAppleTouchIcon(context, url, collector.awaitImage(IconSource::appleTouchIcon));
    fetchFromManifest(context, url, collector.awaitImage(IconSource::manifest));
    fetchFromGoogleAPI(context, host, faviconServiceSize,
                       collector.awaitImage(IconSource::googleAPI));
    fetchDirectFavicon(context, url, collector.awaitImage(IconSource::faviconICO));
    collector.whenComplete(std::move(completion));
}

std::optional<IconCandidate> FaviconFetcher::pickBest(
    const std::vector<IconCandidate>& candidates) {
    const auto* best = highestScore(candidates, [](const IconCandidate& candidate) {
        return candidate.image->size().width >= minimumPreferredWidth;
    });
    if (best == nullptr) {
        best = highestScore(candidates, [](const IconCandidate&) { return true; });
    }
    if (best == nullptr) {
        return std::nullopt;
    }
    return *best;
}

}  // namespace glintmark
