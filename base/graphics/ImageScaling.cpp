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

// The channels of a pixel. Compilers keep them in one register.
using FourFloats = float __attribute__((vector_size(channels * sizeof(float))));

/// The filter's weights for all rows; columns work in the same way. Destination row `i` is the sum
/// of `count` source rows from `first[i]` on, weighted by `count` weights from `weights[i * count]`
/// on, which add up to 1. `count` is the same for all rows and a multiple of `tapsPerStep`. Surplus
/// weights are zero, and so are those of rows beyond the source's end.
struct Taps {
    std::size_t count;
    std::vector<int> first;
    std::vector<float> weights;

    std::span<const float> weightsOf(std::size_t destination) const {
        return std::span(weights).subspan(destination * count, count);
    }
};

// The taps that one step adds up: as many as an enlargement needs.
constexpr std::size_t tapsPerStep = 4;

constexpr float opaque = 255.0F;
constexpr double filterRadius = 2.0;  // from here on the kernel is zero

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

/// Fills in the weights of the positions from `from` on, for a kernel around `centre`. A position
/// outside the source counts for the pixel at the source's edge.
void fillWeights(double centre, double widening, int from, int sourceSize,
                 std::span<float> weights) {
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
    Taps taps{(needed + tapsPerStep - 1) / tapsPerStep * tapsPerStep, {}, {}};
    taps.weights.resize(static_cast<std::size_t>(destinationSize) * taps.count);
    auto weights = std::span(taps.weights);
    for (int i = 0; i < destinationSize; ++i) {
        const double centre = (i + 0.5) * step - 0.5;
        const int from = static_cast<int>(std::floor(centre - radius)) + 1;
        taps.first.push_back(std::clamp(from, 0, sourceSize - 1));
        fillWeights(centre, widening, from, sourceSize, weights.first(taps.count));
        weights = weights.subspan(taps.count);
    }
    return taps;
}

// Each straight pixel is read and written as one number, and the rows are read and written through
// pointers, which the library's assertions do not check, so that the compiler can turn the loops
// into vector instructions.
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
        float* const to = row.data() + i;
        to[0] = channelOf(pixel, 0) * share;
        to[1] = channelOf(pixel, 1) * share;
        to[2] = channelOf(pixel, 2) * share;
        to[3] = opaque * share;
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
        for (std::size_t i = 0; i < columns.count; i += tapsPerStep) {
            sum += fourAt(from) * weights[0] + fourAt(from + channels) * weights[1] +
                   fourAt(from + 2 * channels) * weights[2] +
                   fourAt(from + 3 * channels) * weights[3];
            from += tapsPerStep * channels;
            weights += tapsPerStep;
        }
        std::memcpy(destination, &sum, sizeof sum);
        destination += channels;
    }
}

/// The source's rows, filtered horizontally. Keeps only as many as one destination row needs.
class FilteredRows {
public:
    FilteredRows(const BitmapImageRep& source, int width, std::size_t count)
        : columnTaps_(tapsFor(source.pixelsWide(), width)),
          sourceWidth_(static_cast<std::size_t>(source.pixelsWide())),
          sourceHeight_(source.pixelsHigh()),
          nextSource_(source.pixels().data()),
          sourceRow_((sourceWidth_ + columnTaps_.count) * channels),
          count_(count),
          rows_(count * columnTaps_.first.size() * channels) {}

    /// Filters all rows before `end`, or to the source's end. The last `count` of them are kept.
    void filterUpTo(int end) {
        for (; next_ < std::min(end, sourceHeight_); ++next_) {
            premultiply(nextSource_, std::span(sourceRow_).first(sourceWidth_ * channels));
            nextSource_ += sourceWidth_ * BitmapImageRep::bytesPerPixel;
            filterRow(sourceRow_, columnTaps_, &rows_[offsetOf(static_cast<std::size_t>(next_))]);
        }
    }

    /// Row `y`. Beyond the source's end its values are finite, and their weights are zero.
    const float* row(std::size_t y) const { return &rows_[offsetOf(y)]; }

private:
    std::size_t offsetOf(std::size_t y) const {
        return y % count_ * columnTaps_.first.size() * channels;
    }

    Taps columnTaps_;
    std::size_t sourceWidth_;
    int sourceHeight_;
    const std::uint8_t* nextSource_;
    std::vector<float> sourceRow_;  // padded with transparent pixels for taps beyond its end
    std::size_t count_;
    std::vector<float> rows_;
    int next_ = 0;
};

void addRows(const FilteredRows& rows, std::size_t first, std::span<const float> weights,
             std::span<float> sums) {
    for (std::size_t i = 0; i < weights.size(); i += tapsPerStep) {
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

// The filter's negative lobes make sums below 0 and above 255, and colours above their alpha. The
// result is the nearest value that a bitmap can hold.
std::uint32_t rounded(float value, unsigned channel) {
    // The value is from 0 to 255. NOLINTNEXTLINE(bugprone-incorrect-roundings)
    const auto whole = static_cast<int>(std::min(std::max(value, 0.0F), opaque) + 0.5F);
    return static_cast<std::uint32_t>(whole) << shiftOf(channel);
}

// A pixel whose alpha rounds to 0 has no colour.
void unpremultiply(std::span<const float> row, std::uint8_t* __restrict straight) {
    for (std::size_t i = 0; i < row.size(); i += channels) {
        const float* const from = row.data() + i;
        const float alpha = from[3];
        const float factor = alpha < 0.5F ? 0.0F : opaque / alpha;
        const std::uint32_t pixel = rounded(from[0] * factor, 0) | rounded(from[1] * factor, 1) |
                                    rounded(from[2] * factor, 2) | rounded(alpha, 3);
        std::memcpy(straight + i, &pixel, sizeof pixel);
    }
}

void filter(const BitmapImageRep& source, int width, int height, std::uint8_t* straight) {
    const Taps rows = tapsFor(source.pixelsHigh(), height);
    FilteredRows filtered(source, width, rows.count);
    std::vector<float> sums(static_cast<std::size_t>(width) * channels);
    for (std::size_t y = 0; y < rows.first.size(); ++y) {
        const int first = rows.first[y];
        filtered.filterUpTo(first + static_cast<int>(rows.count));
        addRows(filtered, static_cast<std::size_t>(first), rows.weightsOf(y), sums);
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
