#include "base/graphics/ImageScaling.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

namespace glintmark {

namespace {

// A row is premultiplied red, green, blue and alpha of each pixel, each from 0 to 255.
constexpr std::size_t channels = BitmapImageRep::bytesPerPixel;

// The channels of a pixel, which the compilers keep in one register.
using FourFloats = float __attribute__((vector_size(channels * sizeof(float))));

/// What the destination rows or columns take from those of the source: destination `i` takes
/// `count` of them from `first[i]` on, with `weights[i * count]` and the following, which add up to
/// 1. The count is the same for all, a multiple of `atOnce`; weights too many are zero, also those
/// of rows and columns beyond the source's end.
struct Taps {
    std::size_t count;
    std::vector<int> first;
    std::vector<float> weights;

    std::span<const float> weightsOf(std::size_t destination) const {
        return std::span(weights).subspan(destination * count, count);
    }
};

// As many taps as an enlargement has; they are added in one go.
constexpr std::size_t atOnce = 4;

constexpr float opaque = 255.0F;
constexpr double filterRadius = 2.0;  // the kernel is zero from there on

// The published kernel with B = C = 1/3, its two pieces multiplied out.
double mitchellNetravali(double distance) {
    const double x = std::abs(distance);
    if (x < 1) {
        return (7 * x * x * x - 12 * x * x + 16.0 / 3) / 6;
    }
    if (x < 2) {
        return (-7.0 / 3 * x * x * x + 12 * x * x - 20 * x + 32.0 / 3) / 6;
    }
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

// Straight pixels are read and written as one number each, for the loops to become vector
// instructions.
constexpr unsigned shiftOf(unsigned channel) {
    return 8 * (std::endian::native == std::endian::little ? channel : 3 - channel);
}

float channelOf(std::uint32_t pixel, unsigned channel) {
    return static_cast<float>(static_cast<int>(pixel >> shiftOf(channel) & 0xFFU));
}

void premultiply(const std::uint8_t* straight, std::span<float> row) {
    for (std::size_t i = 0; i < row.size(); i += channels) {
        std::uint32_t pixel = 0;
        std::memcpy(&pixel, straight + i, sizeof pixel);
        const float share = channelOf(pixel, 3) / opaque;
        row[i] = channelOf(pixel, 0) * share;
        row[i + 1] = channelOf(pixel, 1) * share;
        row[i + 2] = channelOf(pixel, 2) * share;
        row[i + 3] = opaque * share;
    }
}

FourFloats fourAt(const float* values) {
    FourFloats four;
    std::memcpy(&four, values, sizeof four);
    return four;
}

void filterRow(const std::vector<float>& source, const Taps& columns, float* destination) {
    const float* weights = columns.weights.data();
    for (const int first : columns.first) {
        const float* from = &source[static_cast<std::size_t>(first) * channels];
        FourFloats sum = {};
        for (std::size_t i = 0; i < columns.count; i += atOnce) {
            sum += fourAt(from) * weights[0] + fourAt(from + channels) * weights[1] +
                   fourAt(from + 2 * channels) * weights[2] +
                   fourAt(from + 3 * channels) * weights[3];
            from += atOnce * channels;
            weights += atOnce;
        }
        std::memcpy(destination, &sum, sizeof sum);
        destination += channels;
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
          sourceRow_((sourceWidth_ + columns_.count) * channels),
          count_(count),
          rows_(count * columns_.first.size() * channels) {}

    /// Makes the rows before `end` as far as there are any. The last `count` of them stay.
    void reach(int end) {
        for (; next_ < std::min(end, sourceHeight_); ++next_) {
            premultiply(nextSource_, std::span(sourceRow_).first(sourceWidth_ * channels));
            nextSource_ += sourceWidth_ * BitmapImageRep::bytesPerPixel;
            filterRow(sourceRow_, columns_, &rows_[place(static_cast<std::size_t>(next_))]);
        }
    }

    /// What row `y` is; something finite beyond the source's end.
    const float* row(std::size_t y) const { return &rows_[place(y)]; }

private:
    std::size_t place(std::size_t y) const { return y % count_ * columns_.first.size() * channels; }

    Taps columns_;
    std::size_t sourceWidth_;
    int sourceHeight_;
    const std::uint8_t* nextSource_;
    std::vector<float> sourceRow_;  // with transparent pixels after its end for the taps there
    std::size_t count_;
    std::vector<float> rows_;
    int next_ = 0;
};

void addUp(const FilteredRows& rows, std::size_t first, std::span<const float> weights,
           std::span<float> sums) {
    for (std::size_t i = 0; i < weights.size(); i += atOnce) {
        const float* const a = rows.row(first + i);
        const float* const b = rows.row(first + i + 1);
        const float* const c = rows.row(first + i + 2);
        const float* const d = rows.row(first + i + 3);
        const FourFloats w = fourAt(&weights[i]);
        float* __restrict const to = sums.data();
        for (std::size_t x = 0; x < sums.size(); ++x) {
            const float sum = a[x] * w[0] + b[x] * w[1] + c[x] * w[2] + d[x] * w[3];
            to[x] = i == 0 ? sum : to[x] + sum;
        }
    }
}

// The negative lobes of the filter take sums below 0 and above 255, and colours above their alpha:
// the nearest that a bitmap can hold is taken.
std::uint32_t rounded(float value, unsigned channel) {
    // From 0 to 255, so that nothing can go wrong. NOLINTNEXTLINE(bugprone-incorrect-roundings)
    const auto whole = static_cast<int>(std::clamp(value, 0.0F, opaque) + 0.5F);
    return static_cast<std::uint32_t>(whole) << shiftOf(channel);
}

// A pixel too faint to be seen has no colour.
void unpremultiply(std::span<const float> row, std::uint8_t* __restrict straight) {
    for (std::size_t i = 0; i < row.size(); i += channels) {
        const float alpha = row[i + 3];
        const float factor = alpha < 0.5F ? 0.0F : opaque / alpha;
        const std::uint32_t pixel = rounded(row[i] * factor, 0) | rounded(row[i + 1] * factor, 1) |
                                    rounded(row[i + 2] * factor, 2) | rounded(alpha, 3);
        std::memcpy(straight + i, &pixel, sizeof pixel);
    }
}

void filter(const BitmapImageRep& source, int width, int height, std::uint8_t* straight) {
    const Taps rows = tapsFor(source.pixelsHigh(), height);
    FilteredRows filtered(source, width, rows.count);
    std::vector<float> sums(static_cast<std::size_t>(width) * channels);
    for (std::size_t y = 0; y < rows.first.size(); ++y) {
        const int first = rows.first[y];
        filtered.reach(first + static_cast<int>(rows.count));
        addUp(filtered, static_cast<std::size_t>(first), rows.weightsOf(y), sums);
        unpremultiply(sums, straight);
        straight += sums.size();
    }
}

}  // namespace

BitmapImageRep scaled(const BitmapImageRep& source, int width, int height) {
    if (source.pixelsWide() == width && source.pixelsHigh() == height) {
        return source;
    }
    const std::size_t size =
        static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * channels;
    if (source.pixels().empty()) {
        return {width, height, true, std::vector<std::uint8_t>(size)};
    }

    const auto straight = std::make_shared_for_overwrite<std::uint8_t[]>(size);
    filter(source, width, height, straight.get());
    return {width, height, source.hasAlpha(), straight, std::span(straight.get(), size)};
}

}  // namespace glintmark
