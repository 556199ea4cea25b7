#include "base/graphics/EdgeAlphas.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace glintmark {

namespace {

constexpr double maximumAlpha = 255;

struct Pixel {
    int x;
    int y;
};

std::array<Pixel, std::tuple_size_v<EdgeAlphas>> edgePixels(int w, int h) {
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

}  // namespace

EdgeAlphas edgeAlphas(const BitmapImageRep& bitmap) {
    EdgeAlphas alphas{};
    std::ranges::transform(edgePixels(bitmap.pixelsWide(), bitmap.pixelsHigh()), alphas.begin(),
                           [&](const Pixel& pixel) {
                               const double alpha = bitmap.alphaAt(pixel.x, pixel.y).value_or(1);
                               return static_cast<std::uint8_t>(std::lround(alpha * maximumAlpha));
                           });
    return alphas;
}

}  // namespace glintmark
