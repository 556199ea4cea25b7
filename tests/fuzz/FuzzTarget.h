#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

/// Called by the fuzzer with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace glintmark::fuzz {

inline std::string_view text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Ends the run if `holds` is false; the fuzzer then keeps the input.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace glintmark::fuzz
