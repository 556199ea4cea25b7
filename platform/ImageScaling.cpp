#include "platform/ImageScaling.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace glintmark::platform {

namespace {

// The four channels of a pixel, which the compilers keep in one register.
using FourFloats = float __attribute__((vector_size(16)));

/// Premultiplied red, green, blue and alpha, each from 0 to 255.
struct Pixel {
    FourFloats channels;
};

/// What the destination rows or columns take from those of the source: destination `i` takes
/// `count` of them from `first[i]` on, with `weights[i * count]` and the following, which add up to
/// 1. The count is the same for all, a multiple of `atOnce`; weights too many are zero, also those
/// of rows and columns beyond the source's end.
struct Taps {
    std::size_t count;
    std::vector<int> first;
    std::vector<float> weights;

    const float* weightsOf(std::size_t destination) const { return &weights[destination * count]; }
};

// As many taps as an enlargement has; they are added in one go.
constexpr std::size_t atOnce = 4;

constexpr float opaque = 255.0F;
constexpr double filterRadius = 2.0;  // the kernel is zero from there on

// The published kernel with B = C = 1/3, its two pieces multiplied out.
double mitchellNetravali(double distance) {
    const double x = std::abs(distance);
    if (x < 1) return (7 * x * x * x - 12 * x * x + 16.0 / 3) / 6;
    if (x < 2) return (-7.0 / 3 * x * x * x + 12 * x * x - 20 * x + 32.0 / 3) / 6;
    return 0;
}

/// The weights around `centre`, of the positions from `from` on; what lies outside the source looks
/// like the pixel at its edge.
void weigh(double centre, double widening, int from, int sourceSize, std::span<float> weights) {
    const int last = sourceSize - 1;
    const int first = std::clamp(from, 0, last);
    std::vector<double> exact(weights.size());
    double sum = 0;
    for (int i = from; i < from + static_cast<int>(weights.size()); ++i) {
        const double weight = mitchellNetravali((i - centre) / widening);
        exact[static_cast<std::size_t>(std::clamp(i, first, last) - first)] += weight;
        sum += weight;
    }
    std::ranges::transform(exact, weights.begin(),
                           [sum](double weight) { return static_cast<float>(weight / sum); });
}

Taps tapsFor(int sourceSize, int destinationSize) {
    const double step = static_cast<double>(sourceSize) / destinationSize;
    const double widening = std::max(1.0, step);
    const double radius = filterRadius * widening;
    const auto needed = static_cast<std::size_t>(std::ceil(2 * radius));
    Taps taps{(needed + atOnce - 1) / atOnce * atOnce, {}, {}};
    taps.weights.resize(static_cast<std::size_t>(destinationSize) * taps.count);
    auto weights = std::span(taps.weights);
    for (int i = 0; i < destinationSize; ++i) {
        const double centre = (i + 0.5) * step - 0.5;
        const int from = static_cast<int>(std::floor(centre - radius)) + 1;
        taps.first.push_back(std::clamp(from, 0, sourceSize - 1));
        weigh(centre, widening, from, sourceSize, weights.first(taps.count));
        weights = weights.subspan(taps.count);
    }
    return taps;
}

void premultiply(const std::uint8_t* straight, std::span<Pixel> row) {
    for (Pixel& pixel : row) {
        const auto alpha = static_cast<float>(straight[3]);
        const FourFloats colour = {static_cast<float>(straight[0]), static_cast<float>(straight[1]),
                                   static_cast<float>(straight[2]), opaque};
        pixel.channels = colour * (alpha / opaque);
        straight += BitmapImageRep::bytesPerPixel;
    }
}

void filterRow(const std::vector<Pixel>& source, const Taps& columns, Pixel* destination) {
    const float* weights = columns.weights.data();
    for (const int first : columns.first) {
        const Pixel* from = &source[static_cast<std::size_t>(first)];
        FourFloats sum = {};
        for (std::size_t i = 0; i < columns.count; i += atOnce, from += atOnce, weights += atOnce) {
            sum += from[0].channels * weights[0] + from[1].channels * weights[1] +
                   from[2].channels * weights[2] + from[3].channels * weights[3];
        }
        (destination++)->channels = sum;
    }
}

/// The source, filtered in its rows only: those rows that one destination row needs at a time.
class FilteredRows {
public:
    FilteredRows(const BitmapImageRep& source, int width, std::size_t count)
        : columns_(tapsFor(source.pixelsWide(), width)),
          sourceWidth_(static_cast<std::size_t>(source.pixelsWide())),
          sourceHeight_(source.pixelsHigh()),
          nextSource_(source.pixels().data()),
          sourceRow_(sourceWidth_ + columns_.count),
          count_(count),
          rows_(count * columns_.first.size()) {}

    /// Makes the rows before `end` as far as there are any. The last `count` of them stay.
    void reach(int end) {
        for (; next_ < std::min(end, sourceHeight_); ++next_) {
            premultiply(nextSource_, std::span(sourceRow_).first(sourceWidth_));
            nextSource_ += sourceWidth_ * BitmapImageRep::bytesPerPixel;
            filterRow(sourceRow_, columns_, &rows_[place(static_cast<std::size_t>(next_))]);
        }
    }

    /// What row `y` is; something finite beyond the source's end.
    const Pixel* row(std::size_t y) const { return &rows_[place(y)]; }

private:
    std::size_t place(std::size_t y) const { return y % count_ * columns_.first.size(); }

    Taps columns_;
    std::size_t sourceWidth_;
    int sourceHeight_;
    const std::uint8_t* nextSource_;
    std::vector<Pixel> sourceRow_;  // with transparent pixels after its end for the taps there
    std::size_t count_;
    std::vector<Pixel> rows_;
    int next_ = 0;
};

void addUp(const FilteredRows& rows, std::size_t first, const float* weights, std::size_t count,
           std::vector<Pixel>& sums) {
    for (std::size_t i = 0; i < count; i += atOnce) {
        const Pixel* const a = rows.row(first + i);
        const Pixel* const b = rows.row(first + i + 1);
        const Pixel* const c = rows.row(first + i + 2);
        const Pixel* const d = rows.row(first + i + 3);
        const float* const w = weights + i;
        for (std::size_t x = 0; x < sums.size(); ++x) {
            const FourFloats sum = a[x].channels * w[0] + b[x].channels * w[1] +
                                   c[x].channels * w[2] + d[x].channels * w[3];
            sums[x].channels = i == 0 ? sum : sums[x].channels + sum;
        }
    }
}

// The negative lobes of the filter take sums below 0 and above 255, and colours above their alpha:
// the nearest that a bitmap can hold is taken. A pixel too faint to be seen has no colour.
void unpremultiply(std::span<Pixel> row) {
    constexpr FourFloats least = {};
    constexpr FourFloats most = {opaque, opaque, opaque, opaque};
    for (Pixel& pixel : row) {
        const float alpha = pixel.channels[3];
        FourFloats straight = pixel.channels * (alpha < 0.5F ? 0.0F : opaque / alpha);
        straight[3] = alpha;
        straight = straight > least ? straight : least;
        pixel.channels = straight < most ? straight : most;
    }
}

void round(std::span<const Pixel> row, std::uint8_t* __restrict straight) {
    const auto* channels = reinterpret_cast<const float*>(row.data());
    const std::size_t count = row.size() * BitmapImageRep::bytesPerPixel;
    for (std::size_t i = 0; i < count; ++i) {
        // From 0 to 255, so that nothing can go wrong. NOLINTNEXTLINE(bugprone-incorrect-roundings)
        straight[i] = static_cast<std::uint8_t>(static_cast<int>(channels[i] + 0.5F));
    }
}

void filter(const BitmapImageRep& source, int width, int height, std::uint8_t* straight) {
    const Taps rows = tapsFor(source.pixelsHigh(), height);
    FilteredRows filtered(source, width, rows.count);
    std::vector<Pixel> sums(static_cast<std::size_t>(width));
    for (std::size_t y = 0; y < rows.first.size(); ++y) {
        const int first = rows.first[y];
        filtered.reach(first + static_cast<int>(rows.count));
        addUp(filtered, static_cast<std::size_t>(first), rows.weightsOf(y), rows.count, sums);
        unpremultiply(sums);
        round(sums, straight);
        straight += sums.size() * BitmapImageRep::bytesPerPixel;
    }
}

}  // namespace

BitmapImageRep scaled(const BitmapImageRep& source, int width, int height) {
    if (source.pixelsWide() == width && source.pixelsHigh() == height) return source;
    const auto count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    std::vector<std::uint8_t> straight(count * BitmapImageRep::bytesPerPixel);
    if (source.pixels().empty()) return {width, height, true, std::move(straight)};

    filter(source, width, height, straight.data());
    return {width, height, source.hasAlpha(), std::move(straight)};
}

}  // namespace glintmark::platform
