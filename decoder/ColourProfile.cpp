#include "decoder/ColourProfile.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

#include "decoder/ByteReader.h"

// International Color Consortium, ICC.1:2010 (version 4.3), which also describes the earlier
// profiles with three curves and a matrix.

namespace glintmark::decoder {

namespace {

constexpr std::size_t colourSpaceField = 16;
constexpr std::size_t connectionSpaceField = 20;
constexpr std::size_t signatureField = 36;
constexpr std::size_t tagCountField = 128;
constexpr std::size_t firstTag = 132;
constexpr std::size_t tagSize = 12;
constexpr std::uint32_t maximumTags = 100;

constexpr float maximumCurveError = 0.003F;  // less than one of 255 steps
constexpr float maximumMatrixError = 0.003F;
constexpr float maximumWhiteError = 0.05F;
constexpr std::size_t encodedSteps = 16384;  // so many that each of the 256 results is reached

using Vector = std::array<float, 3>;
using Matrix = std::array<Vector, 3>;  // rows
using Curve = std::array<float, 256>;

constexpr Vector whiteD50 = {0.9642F, 1.0F, 0.8249F};

// The connection space, whose white is D50, to linear sRGB, adapted by Bradford's method.
constexpr Matrix linearFromD50 = {{{3.1338561F, -1.6168667F, -0.4906146F},
                                   {-0.9787684F, 1.9161415F, 0.0334540F},
                                   {0.0719453F, -0.2289914F, 1.4052427F}}};
constexpr Matrix linearFromDisplayP3 = {{{1.2249402F, -0.2249402F, 0.0F},
                                         {-0.0420570F, 1.0420570F, 0.0F},
                                         {-0.0196376F, -0.0786361F, 1.0982737F}}};
constexpr Matrix linearFromBT2020 = {{{1.6604910F, -0.5876411F, -0.0728499F},
                                      {-0.1245505F, 1.1328999F, -0.0083494F},
                                      {-0.0181508F, -0.1005789F, 1.1187297F}}};

struct ColourSpace {
    std::array<Curve, 3> linear;  ///< By channel and stored value.
    Matrix toSRGB;                ///< Between linear colours.
};

// IEC 61966-2-1.
float linearOfSRGB(float value) {
    return value <= 0.04045F ? value / 12.92F : std::pow((value + 0.055F) / 1.055F, 2.4F);
}

float sRGBOfLinear(float value) {
    return value <= 0.0031308F ? value * 12.92F : 1.055F * std::pow(value, 1 / 2.4F) - 0.055F;
}

/// 0 for what is no number.
float inUnit(float value) { return value > 0 ? std::min(value, 1.0F) : 0.0F; }

Curve curveOfSRGB() {
    Curve curve{};
    for (std::size_t i = 0; i < curve.size(); ++i) {
        curve[i] = linearOfSRGB(static_cast<float>(i) / 255);
    }
    return curve;
}

Vector product(const Matrix& matrix, const Vector& vector) {
    Vector result{};
    for (std::size_t row = 0; row < 3; ++row) {
        result[row] =
            matrix[row][0] * vector[0] + matrix[row][1] * vector[1] + matrix[row][2] * vector[2];
    }
    return result;
}

float fixed(const ByteReader& bytes, std::size_t at) {
    return static_cast<float>(static_cast<std::int32_t>(bytes.big32(at))) / 65536;
}

std::span<const std::uint8_t> tag(const ByteReader& profile, std::string_view name) {
    const std::uint32_t count = std::min(profile.big32(tagCountField), maximumTags);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::size_t at = firstTag + i * tagSize;
        if (profile.matches(at, name)) {
            return profile.part(profile.big32(at + 4), profile.big32(at + 8));
        }
    }
    return {};
}

// Section 10.15. The functions have up to seven parameters: g, a, b, c, d, e, f.
std::optional<Curve> parametricCurve(const ByteReader& bytes) {
    static constexpr std::size_t parameterCounts[] = {1, 3, 4, 5, 7};
    const std::uint32_t function = bytes.big32(8) >> 16U;
    if (function >= std::size(parameterCounts)) {
        return std::nullopt;
    }
    std::array<float, 7> p{1, 1};
    for (std::size_t i = 0; i < parameterCounts[function]; ++i) {
        p[i] = fixed(bytes, 12 + i * 4);
    }
    auto [g, a, b, c, d, e, f] = p;
    if (function < 3) {
        // Below the point where the base becomes negative, the result is the constant c.
        d = a == 0 ? 0 : -b / a;
        e = f = c;
        c = 0;
    }
    Curve curve{};
    for (std::size_t i = 0; i < curve.size(); ++i) {
        const float x = static_cast<float>(i) / 255;
        curve[i] = inUnit(x >= d ? std::pow(a * x + b, g) + e : c * x + f);
    }
    return curve;
}

// Section 10.5: a gamma, or samples at equal distances.
std::optional<Curve> sampledCurve(const ByteReader& bytes) {
    const std::size_t count = bytes.big32(8);
    if (!bytes.has(12, count * 2)) {
        return std::nullopt;
    }
    const auto sample = [&](std::size_t i) {
        return static_cast<float>(bytes.big32(12 + i * 2) >> 16U);
    };
    Curve curve{};
    for (std::size_t i = 0; i < curve.size(); ++i) {
        const float x = static_cast<float>(i) / 255;
        if (count < 2) {
            curve[i] = std::pow(x, count == 0 ? 1 : sample(0) / 256);
        } else {
            const float place = x * static_cast<float>(count - 1);
            const auto below = std::min(static_cast<std::size_t>(place), count - 2);
            const float part = place - static_cast<float>(below);
            curve[i] = (sample(below) * (1 - part) + sample(below + 1) * part) / 65535;
        }
    }
    return curve;
}

std::optional<Curve> parseCurve(std::span<const std::uint8_t> data) {
    const ByteReader bytes(data);
    if (bytes.matches(0, "para")) {
        return parametricCurve(bytes);
    }
    if (bytes.matches(0, "curv")) {
        return sampledCurve(bytes);
    }
    return std::nullopt;
}

bool isWhite(const Vector& colour) {
    return std::abs(colour[0] - whiteD50[0]) <= maximumWhiteError &&
           std::abs(colour[1] - whiteD50[1]) <= maximumWhiteError &&
           std::abs(colour[2] - whiteD50[2]) <= maximumWhiteError;
}

std::optional<ColourSpace> parseProfile(const ByteReader& profile) {
    static constexpr std::string_view curveTags[] = {"rTRC", "gTRC", "bTRC"};
    static constexpr std::string_view colourTags[] = {"rXYZ", "gXYZ", "bXYZ"};
    if (!profile.matches(signatureField, "acsp") || !profile.matches(colourSpaceField, "RGB ") ||
        !profile.matches(connectionSpaceField, "XYZ ")) {
        return std::nullopt;
    }
    ColourSpace space{};
    Vector white{};
    for (std::size_t channel = 0; channel < 3; ++channel) {
        const auto curve = parseCurve(tag(profile, curveTags[channel]));
        if (!curve) {
            return std::nullopt;
        }
        space.linear[channel] = *curve;
        const ByteReader colour(tag(profile, colourTags[channel]));
        const Vector full{fixed(colour, 8), fixed(colour, 12), fixed(colour, 16)};
        const Vector converted = product(linearFromD50, full);
        for (std::size_t row = 0; row < 3; ++row) {
            white[row] += full[row];
            space.toSRGB[row][channel] = converted[row];
        }
    }
    return isWhite(white) ? std::optional(space) : std::nullopt;
}

bool isSRGB(const ColourSpace& space) {
    const Curve sRGB = curveOfSRGB();
    for (std::size_t channel = 0; channel < 3; ++channel) {
        for (std::size_t i = 0; i < sRGB.size(); ++i) {
            if (std::abs(space.linear[channel][i] - sRGB[i]) > maximumCurveError) {
                return false;
            }
        }
        for (std::size_t row = 0; row < 3; ++row) {
            const float wanted = row == channel ? 1.0F : 0.0F;
            if (std::abs(space.toSRGB[row][channel] - wanted) > maximumMatrixError) {
                return false;
            }
        }
    }
    return true;
}

void convert(const ColourSpace& space, const Canvas& canvas) {
    std::vector<std::uint8_t> encoded(encodedSteps + 1);
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        const float value = sRGBOfLinear(static_cast<float>(i) / encodedSteps);
        encoded[i] = static_cast<std::uint8_t>(std::lround(value * 255));
    }
    const std::span<std::uint8_t> pixels = canvas.pixels();
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
        const Vector linear = {space.linear[0][pixels[i]], space.linear[1][pixels[i + 1]],
                               space.linear[2][pixels[i + 2]]};
        const Vector converted = product(space.toSRGB, linear);
        for (std::size_t c = 0; c < 3; ++c) {
            const float step = inUnit(converted[c]) * encodedSteps + 0.5F;
            pixels[i + c] = encoded[static_cast<std::size_t>(step)];
        }
    }
}

}  // namespace

void convertFromProfile(std::span<const std::uint8_t> profile, const Canvas& canvas) {
    const auto space = parseProfile(ByteReader(profile));
    if (space && !isSRGB(*space)) {
        convert(*space, canvas);
    }
}

void convertFromPrimaries(Primaries primaries, const Canvas& canvas) {
    const Curve sRGB = curveOfSRGB();
    const Matrix& matrix =
        primaries == Primaries::displayP3 ? linearFromDisplayP3 : linearFromBT2020;
    convert({{sRGB, sRGB, sRGB}, matrix}, canvas);
}

}  // namespace glintmark::decoder
