#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/graphics/BitmapImageRep.h"
#include "base/graphics/Image.h"
#include "favicon/IconCandidate.h"

namespace glintmark {

/// A black picture. It begins opaque; its alpha is set pixel by pixel.
class Picture {
public:
    Picture(int width, int height)
        : width_(width),
          height_(height),
          pixels_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) {
        fill(255);
    }

    Picture& fill(std::uint8_t alpha) {
        for (std::size_t i = 3; i < pixels_.size(); i += 4) {
            pixels_[i] = alpha;
        }
        return *this;
    }

    Picture& set(int x, int y, std::uint8_t alpha) {
        pixels_.at(static_cast<std::size_t>(y * width_ + x) * 4 + 3) = alpha;
        return *this;
    }

    Picture& withoutAlpha() {
        hasAlpha_ = false;
        return *this;
    }

    BitmapImageRep bitmap() const { return {width_, height_, hasAlpha_, pixels_}; }

    std::shared_ptr<const Image> image() const { return std::make_shared<const Image>(bitmap()); }

private:
    int width_;
    int height_;
    bool hasAlpha_ = true;
    std::vector<std::uint8_t> pixels_;
};

/// A candidate whose image has `size`, with a bitmap of one pixel.
inline IconCandidate candidateOfSize(Size size, bool transparent, IconSource source) {
    const BitmapImageRep pixel = Picture(1, 1).fill(transparent ? 0 : 255).bitmap();
    return {std::make_shared<const Image>(size, pixel, edgeAlphas(pixel)), source};
}

}  // namespace glintmark
