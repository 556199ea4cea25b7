#include "favicon/IconCandidate.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "base/graphics/Geometry.h"

namespace glintmark {

namespace {

constexpr double maximumAlpha = 255;
constexpr double minimumOpaqueAlpha = 0.95;  // less counts as transparent

constexpr std::int64_t minimumLargeWidth = 128;
constexpr std::int64_t largeWidthBonus = 2000;
constexpr std::int64_t maximumWidthCredit = 512;
constexpr std::int64_t transparencyBonus = 500;

std::int64_t sourceBonus(IconSource source) {
    switch (source) {
        case IconSource::htmlIcon:
            return 20;
        case IconSource::htmlAppleTouchIcon:
            return 2;
        case IconSource::appleTouchIcon:
            return 1;
        case IconSource::manifest:
            return 15;
        case IconSource::googleAPI:
            return 10;
        case IconSource::faviconICO:
            return 5;
    }
    return 0;
}

}  // namespace

IconCandidate::IconCandidate(std::shared_ptr<const Image> candidateImage, IconSource imageSource)
    : image(std::move(candidateImage)),
      source(imageSource),
      hasTransparency(checkTransparency(*image)) {}

IconCandidate::ScoreParts IconCandidate::scoreParts() const {
    const std::int64_t width = truncatedToInt(image->size().width);
    return {width >= minimumLargeWidth ? largeWidthBonus : 0, std::min(width, maximumWidthCredit),
            hasTransparency ? transparencyBonus : 0, sourceBonus(source)};
}

std::int64_t IconCandidate::score() const {
    const ScoreParts parts = scoreParts();
    return parts.largeWidth + parts.width + parts.transparency + parts.source;
}

bool IconCandidate::checkTransparency(const Image& image) {
    const auto alphas = image.edgeAlphas();
    if (!alphas) {
        return false;
    }
    // The threshold is always a quarter of all twelve pixels, even where some lie outside.
    const auto transparent = std::ranges::count_if(
        *alphas, [](std::uint8_t alpha) { return alpha / maximumAlpha < minimumOpaqueAlpha; });
    return transparent >= static_cast<std::ptrdiff_t>(alphas->size() / 4);
}

}  // namespace glintmark
