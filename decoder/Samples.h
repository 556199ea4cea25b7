#pragma once

#include <span>
#include <string_view>

namespace glintmark::decoder {

/// A file of samples/, built into the helper: a picture of 8 x 8 pixels.
struct Sample {
    std::string_view name;
    std::string_view bytes;
};

/// One for each code path through a library.
std::span<const Sample> samples();

}  // namespace glintmark::decoder
