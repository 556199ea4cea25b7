#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "decoder/PixelStore.h"

namespace glintmark::decoder {

/// Keeps the pixels on the heap, for images that are decoded in the process that uses them.
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
