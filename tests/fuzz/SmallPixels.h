#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "decoder/PixelStore.h"

namespace glintmark::fuzz {

/// Room for pictures of up to a million pixels: larger ones only make a run slow.
class SmallPixels : public decoder::PixelStore {
public:
    bool fill(int width, int height) const {
        return width > 0 && height > 0 &&
               bytes_.size() ==
                   std::size_t{4} * static_cast<unsigned>(width) * static_cast<unsigned>(height);
    }

private:
    std::span<std::uint8_t> provide(std::size_t size) override {
        if (size > std::size_t{4} << 20U) {
            return {};
        }
        bytes_.assign(size, 0);
        return bytes_;
    }

    std::vector<std::uint8_t> bytes_;
};

}  // namespace glintmark::fuzz
