#include "platform/ImageScaling.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace glintmark::platform {

namespace {

// One pixel or one weight times four, which the compilers keep in one register.
using FourFloats = float __attribute__((vector_size(16)));

/// Premultiplied red, green, blue and alpha, each from 0 to 255.
struct Pixel {
    FourFloats channels;
};

/// What one destination row or column takes from the source: `weights`, which add up to 1, for the
/// source rows or columns from `first` on.
struct Taps {
    int first = 0;
    std::vector<float> weights;

    int end() const { return first + static_cast<int>(weights.size()); }
};

constexpr float opaque = 255.0F;
constexpr double filterRadius = 2.0;  // the kernel is zero from there on

// The published kernel with B = C = 1/3, its two pieces multiplied out.
double mitchellNetravali(double distance) {
    const double x = std::abs(distance);
    if (x < 1) return (7 * x * x * x - 12 * x * x + 16.0 / 3) / 6;
    if (x < 2) return (-7.0 / 3 * x * x * x + 12 * x * x - 20 * x + 32.0 / 3) / 6;
    return 0;
}

Taps tapsFor(int destination, double step, int sourceSize) {
    const double widening = std::max(1.0, step);
    const double centre = (destination + 0.5) * step - 0.5;
    const int from = static_cast<int>(std::ceil(centre - filterRadius * widening));
    const int to = static_cast<int>(std::floor(centre + filterRadius * widening));
    const int last = sourceSize - 1;

    Taps taps;
    taps.first = std::clamp(from, 0, last);
    std::vector<double> weights(static_cast<std::size_t>(std::clamp(to, 0, last) - taps.first + 1));
    double sum = 0;
    for (int i = from; i <= to; ++i) {
        const double weight = mitchellNetravali((i - centre) / widening);
        // What lies outside looks like the pixel at the edge.
        weights[static_cast<std::size_t>(std::clamp(i, 0, last) - taps.first)] += weight;
        sum += weight;
    }
    for (const double weight : weights) taps.weights.push_back(static_cast<float>(weight / sum));
    return taps;
}

std::vector<Taps> tapsFor(int sourceSize, int destinationSize) {
    const double step = static_cast<double>(sourceSize) / destinationSize;
    std::vector<Taps> all;
    all.reserve(static_cast<std::size_t>(destinationSize));
    for (int i = 0; i < destinationSize; ++i) all.push_back(tapsFor(i, step, sourceSize));
    return all;
}

void premultiply(const std::uint8_t* straight, std::vector<Pixel>& row) {
    for (Pixel& pixel : row) {
        const auto alpha = static_cast<float>(straight[3]);
        const FourFloats colour = {static_cast<float>(straight[0]), static_cast<float>(straight[1]),
                                   static_cast<float>(straight[2]), opaque};
        pixel.channels = colour * (alpha / opaque);
        straight += BitmapImageRep::bytesPerPixel;
    }
}

void filterRow(const std::vector<Pixel>& source, const std::vector<Taps>& columns,
               std::vector<Pixel>& destination) {
    for (std::size_t x = 0; x < columns.size(); ++x) {
        const Pixel* from = &source[static_cast<std::size_t>(columns[x].first)];
        FourFloats sum = {};
        for (const float weight : columns[x].weights) sum += (from++)->channels * weight;
        destination[x].channels = sum;
    }
}

void addRow(const std::vector<Pixel>& row, float weight, Pixel* destination) {
    for (const Pixel& pixel : row) (destination++)->channels += pixel.channels * weight;
}

std::uint8_t toByte(float value) {
    return static_cast<std::uint8_t>(std::clamp(value, 0.0F, opaque) + 0.5F);
}

// The negative lobes of the filter take sums below 0 and above 255, and colours above their alpha:
// the nearest that a bitmap can hold is taken. A pixel too faint to be seen has no colour.
void writeStraight(const Pixel& pixel, std::uint8_t* straight) {
    const float alpha = pixel.channels[3];
    const std::uint8_t alphaByte = toByte(alpha);
    if (alphaByte == 0) return;
    const FourFloats colour = pixel.channels * (opaque / alpha);
    straight[0] = toByte(colour[0]);
    straight[1] = toByte(colour[1]);
    straight[2] = toByte(colour[2]);
    straight[3] = alphaByte;
}

// Each source row is filtered once and added to all rows that it reaches, so that beside source and
// destination only one row of each is held, however large the source.
std::vector<Pixel> filtered(const BitmapImageRep& source, int width, int height) {
    const std::vector<Taps> columns = tapsFor(source.pixelsWide(), width);
    const std::vector<Taps> rows = tapsFor(source.pixelsHigh(), height);
    const auto sourceWidth = static_cast<std::size_t>(source.pixelsWide());
    const auto rowSize = static_cast<std::size_t>(width);

    std::vector<Pixel> sums(rowSize * rows.size());
    std::vector<Pixel> sourceRow(sourceWidth);
    std::vector<Pixel> row(rowSize);
    const std::uint8_t* straight = source.pixels().data();
    std::size_t reached = 0;  // rows above it need nothing more
    for (int y = 0; y < source.pixelsHigh(); ++y) {
        premultiply(straight, sourceRow);
        straight += sourceWidth * BitmapImageRep::bytesPerPixel;
        filterRow(sourceRow, columns, row);
        while (reached < rows.size() && rows[reached].end() <= y) ++reached;
        for (std::size_t d = reached; d < rows.size() && rows[d].first <= y; ++d) {
            addRow(row, rows[d].weights[static_cast<std::size_t>(y - rows[d].first)],
                   &sums[d * rowSize]);
        }
    }
    return sums;
}

}  // namespace

BitmapImageRep scaled(const BitmapImageRep& source, int width, int height) {
    if (source.pixelsWide() == width && source.pixelsHigh() == height) return source;
    const auto count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    std::vector<std::uint8_t> straight(count * BitmapImageRep::bytesPerPixel);
    if (source.pixels().empty()) return {width, height, true, std::move(straight)};

    std::uint8_t* next = straight.data();
    for (const Pixel& pixel : filtered(source, width, height)) {
        writeStraight(pixel, next);
        next += BitmapImageRep::bytesPerPixel;
    }
    return {width, height, source.hasAlpha(), std::move(straight)};
}

}  // namespace glintmark::platform
