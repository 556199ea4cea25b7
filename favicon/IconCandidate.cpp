#include "favicon/IconCandidate.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/graphics/Geometry.h"

namespace glintmark {

namespace {

constexpr double minimumOpaqueAlpha = 0.95;  // less counts as transparent

constexpr std::int64_t minimumLargeWidth = 128;
constexpr std::int64_t largeWidthBonus = 2000;
constexpr std::int64_t maximumWidthCredit = 512;
constexpr std::int64_t transparencyBonus = 500;

struct Pixel {
    int x;
    int y;
};

/// The four corners, the middles of the four edges and the pixels one step inside the corners.
std::array<Pixel, 12> samplePoints(int w, int h) {
    return {{{0, 0},
             {w - 1, 0},
             {0, h - 1},
             {w - 1, h - 1},
             {w / 2, 0},
             {w / 2, h - 1},
             {0, h / 2},
             {w - 1, h / 2},
             {1, 1},
             {w - 2, 1},
             {1, h - 2},
             {w - 2, h - 2}}};
}

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

std::int64_t IconCandidate::score() const {
    const std::int64_t width = truncatedToInt(image->size().width);
    std::int64_t score = width >= minimumLargeWidth ? largeWidthBonus : 0;
    score += std::min(width, maximumWidthCredit);
    if (hasTransparency) {
        score += transparencyBonus;
    }
    return score + sourceBonus(source);
}

bool IconCandidate::checkTransparency(const Image& image) {
    const auto bitmap = image.bitmap();
    if (!bitmap || !bitmap->hasAlpha()) {
        return false;
    }
    const int w = bitmap->pixelsWide();
    const int h = bitmap->pixelsHigh();
    if (w <= 0 || h <= 0) {
        return false;
    }
    // In a small bitmap some points coincide, and each of them counts. Points outside the bitmap
    // never count. The threshold is always a quarter of all twelve points.
    const auto points = samplePoints(w, h);
    const auto transparent = std::ranges::count_if(points, [&](const Pixel& point) {
        const auto alpha = bitmap->alphaAt(point.x, point.y);
        return alpha && *alpha < minimumOpaqueAlpha;
    });
    return transparent >= static_cast<std::ptrdiff_t>(points.size() / 4);
}

}  // namespace glintmark
