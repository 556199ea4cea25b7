#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "decoder/PixelStore.h"

namespace glintmark::decoder {

/// Keeps the pixels of an image that is decoded where it is used.
class HeapPixels : public PixelStore {
public:
    /// The pixels of the last canvas.
    std::vector<std::uint8_t> take() { return std::move(bytes_); }

private:
    std::span<std::uint8_t> provide(std::size_t size) override {
        bytes_.assign(size, 0);
        return bytes_;
    }

    std::vector<std::uint8_t> bytes_;
};

}  // namespace glintmark::decoder
